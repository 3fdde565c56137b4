#pragma once
// Readers yield the frames of a capture one at a time; the factory picks the reader that fits a file. A
// reader is created, read to its end and destroyed, which closes its file. Diagnostics go to standard output.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "utils/pcap/pcap_file.h"
#include "utils/pcap/pcap_packet.h"

namespace corvo {

enum capture_type : int {
    CAPTURE_LIBPCAP = 0,
    CAPTURE_ERF = 1,
};

class CCapReaderBase {
 public:
    CCapReaderBase() = default;
    CCapReaderBase(const CCapReaderBase&) = delete;
    CCapReaderBase& operator=(const CCapReaderBase&) = delete;
    virtual ~CCapReaderBase() = default;

    /** Reads the next frame and its time into `pkt`. False at the end and where the file is damaged. */
    virtual bool ReadPacket(CCapPkt* pkt) = 0;
    /** Counts the records from the current position to the end, then starts over. */
    virtual uint32_t readNumOfPackets(CCapPkt*) { return 0; }
    virtual uint32_t get_last_pkt_count() { return 1; }
    virtual void Rewind() {}
    /**
     * Opens a file. Returns false if it can't be read or has another format. `loop` is the number of packets
     * after which the end of the file counts as the end; 0 for a single pass.
     */
    virtual bool Create(const char* path, int loop) = 0;
    virtual void setFirstPacket(bool) {}

    /** Has no effect: a range of packets always starts at the first. */
    void set_from_pkt(uint64_t) {}
    uint64_t get_from_pkt() const { return m_from_pkt == 0 ? 0 : m_from_pkt - 1; }
    /** Sets the last packet of the range; negative means no limit. Ends the process if the range is empty. */
    void set_to_pkt(int64_t to);
    void set_opt_config(uint64_t from, int64_t to);
    bool is_pkt_quota_reached(uint64_t count) const {
        return m_to_pkt >= 0 && static_cast<uint64_t>(m_to_pkt) <= count;
    }
    /** Position in the file in bytes; 0 without a limit or a file. */
    uint64_t get_curr_pkt_offset() const;
    /** Prints a line for each GiB read. */
    void print_progress();

 protected:
    /**
     * Opens `path` as `m_file` with a large buffer and measures it. Returns false with errno set on failure.
     */
    bool open_file(const char* path);

    int m_loop = 0;
    uint64_t m_file_size = 0;      ///< bytes
    uint64_t m_next_progress = 0;  ///< offset of the next progress line
    uint64_t m_start_offset = 0;
    std::unique_ptr<char[]> m_stream_buffer;  ///< used by `m_file`, so must be destroyed after it
    FilePtr m_file;
    int64_t m_to_pkt = -1;
    uint64_t m_from_pkt = 0;
};

/** Yields one frame from memory, once. The memory must outlive the reader. */
class CRawPacketReader : public CCapReaderBase {
 public:
    CRawPacketReader(const unsigned char* frame, uint16_t len) : m_frame(frame), m_len(len) {}

    bool ReadPacket(CCapPkt* pkt) override;
    bool Create(const char*, int) override { return true; }

 private:
    const unsigned char* m_frame;
    uint16_t m_len;
    bool m_is_read = false;
};

/** Holds all packets of a file in memory. */
class CWholeCapReader : public CCapReaderBase {
 public:
    /** Reads `source` to its end. */
    explicit CWholeCapReader(CCapReaderBase& source);

    /**
     * Copies the next packet into `pkt`. All readers of this class share one position and pass once from the
     * first packet to the last, so another reader continues where this one stopped.
     */
    bool ReadPacket(CCapPkt* pkt) override;
    bool Create(const char*, int) override { return false; }

    /** Copies of all packets that `reader` has left. */
    static std::vector<std::unique_ptr<CCapPkt>> getLpPackets(CCapReaderBase& reader);

 private:
    std::vector<std::unique_ptr<CCapPkt>> m_packets;
};

class CCapReaderFactory {
 public:
    /** A reader without a file. Prints a line and returns null for an unknown type. */
    static std::unique_ptr<CCapReaderBase> CreateReaderInstace(capture_type type);
    /** The reader whose format fits the file. If there is none, prints the reason and returns null. */
    static std::unique_ptr<CCapReaderBase> CreateReader(const char* path, int loop);
    static std::unique_ptr<CCapReaderBase> CreateReader(const unsigned char* frame, uint16_t len);
    /** Null, as above, for a file that can't be read. The file is read once, whatever `loop` is. */
    static std::unique_ptr<CWholeCapReader> CreateWholeCapReader(const char* path, int loop);
};

}  // namespace corvo
