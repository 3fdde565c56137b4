#pragma once
// The frames of a capture file of any format that libpcap reads, plain or packed by gzip, and of ERF: as
// whole Ethernet frames, which is all that the daemon's own reader takes. The file may be hostile.

#include <cstdint>
#include <memory>
#include <string>

namespace brumectl {

class CaptureSource {
 public:
    struct Frame {
        std::string bytes = {};  ///< Ethernet, as long as it was on the wire
        uint64_t usec = 0;       ///< of the epoch
    };
    /** What `next` had to do to the frames so far. */
    struct Repairs {
        uint64_t padded = 0;       ///< the capture had cut them; zeros stand for what is lost
        uint64_t unconverted = 0;  ///< left out: broken, or not to be had as Ethernet
        uint64_t too_long = 0;     ///< left out: above the 65535 bytes of a frame

        bool any() const { return padded + unconverted + too_long > 0; }
    };

    /**
     * `filter` is a BPF expression as tcpdump takes it; empty for all frames.
     * @throws Failure for a file that can't be read, Usage for a bad filter
     */
    static std::unique_ptr<CaptureSource> open(const std::string& path, const std::string& filter);
    CaptureSource() = default;
    CaptureSource(const CaptureSource&) = delete;
    CaptureSource& operator=(const CaptureSource&) = delete;
    virtual ~CaptureSource() = default;

    /** False at the end, and where the file is damaged. @throws Interrupted */
    virtual bool next(Frame& frame) = 0;
    /** The daemon reads this format; whether it gets all frames whole is another question. */
    virtual bool is_daemons_format() const = 0;
    const Repairs& repairs() const { return m_repairs; }
    /** Why the frames ended before the file did; empty if they didn't. */
    const std::string& damage() const { return m_damage; }

 protected:
    Repairs m_repairs;
    std::string m_damage;
};

}  // namespace brumectl
