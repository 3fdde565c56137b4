#pragma once
// The unmodified frames of a capture in any format that libpcap reads, plain or gzipped, or in ERF. The file
// may be hostile.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace brumectl {

/** A frame of a capture. */
struct RawFrame {
    const unsigned char* bytes = nullptr;  ///< valid until the next frame is read
    uint32_t held = 0;                     ///< captured bytes, never more than `len`
    uint32_t len = 0;                      ///< on the wire
    uint64_t usec = 0;                     ///< microseconds since the Epoch
};

class CaptureSource {
 public:
    struct Setup {
        std::string filter = {};          ///< a BPF expression in tcpdump's syntax; empty for all frames
        std::function<void()> idle = {};  ///< see ByteStream
    };

    /**
     * `path` "-" is standard input.
     * Throws Failure for a file that can't be read, Usage for a bad filter, Interrupted.
     */
    static std::unique_ptr<CaptureSource> open(const std::string& path, const Setup& setup);
    explicit CaptureSource(uint64_t size) : m_size(size) {}
    CaptureSource(const CaptureSource&) = delete;
    CaptureSource& operator=(const CaptureSource&) = delete;
    virtual ~CaptureSource() = default;

    /** Returns false at the end, and where the file is damaged. Throws Interrupted. */
    virtual bool next(RawFrame& frame) = 0;
    /** The frames' link type, a DLT_ value of libpcap. */
    virtual int link() const = 0;
    /** As stored, bytes; 0 if unknown. */
    uint64_t size() const { return m_size; }
    /** Fraction of the file that has been read, 0 to 1; 0 if unknown. */
    virtual double progress() const = 0;
    /** Why the frames ended before the file did; empty if they didn't. */
    const std::string& damage() const { return m_damage; }

 protected:
    const uint64_t m_size;
    std::string m_damage;
};

}  // namespace brumectl
