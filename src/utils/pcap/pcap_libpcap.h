#pragma once
// The pcap format: a global header of 24 bytes, then records of a 16-byte header and a frame, in the byte
// order of the machine that wrote them.

#include <cstdint>

#include "utils/pcap/pcap_reader.h"
#include "utils/pcap/pcap_writer.h"

namespace corvo {

/** The header of a pcap record, as laid out in the file. */
struct sf_pkthdr {
    uint32_t ts_sec;   ///< seconds
    uint32_t ts_usec;  ///< microseconds
    uint32_t caplen;   ///< bytes of the frame in the file
    uint32_t len;      ///< bytes of the frame on the wire
};
static_assert(sizeof(sf_pkthdr) == 16);

/**
 * Reads microsecond pcap files of either byte order. A record yields the number of bytes that the frame had
 * on the wire, or those that were captured if fewer; bytes beyond the frame are skipped. A frame of 65536
 * bytes or more ends the file.
 */
class LibPCapReader : public CCapReaderBase {
 public:
    bool ReadPacket(CCapPkt* pkt) override;
    uint32_t readNumOfPackets(CCapPkt* pkt) override;
    void Rewind() override;
    bool Create(const char* path, int loop) override;
    void setFirstPacket(bool first) override { m_first_packet = first; }

 private:
    bool init();
    bool is_ready(const CCapPkt* pkt) const { return m_is_valid && m_is_open && pkt; }
    bool read_header(sf_pkthdr& header);

    bool m_is_open = false;
    bool m_is_valid = false;  ///< the global header was valid
    bool m_is_flip = false;   ///< the file has the opposite byte order
    bool m_first_packet = true;
    uint32_t m_last_pkt_count = 0;
};

/** Writes microsecond pcap files in the machine's byte order. */
class LibPCapWriter : public CFileWriterBase {
 public:
    bool Create(const char* path) override;
    bool write_packet(CCapPkt* pkt) override;
    void Close();
    uint32_t get_pkt_count() const { return m_pkt_count; }

 private:
    bool init();

    FilePtr m_file;
    uint64_t m_total_calls = 0;
    bool m_is_open = false;
    uint32_t m_pkt_count = 0;
};

/** Writes the nanosecond variant of pcap, which `LibPCapReader` doesn't read. */
class CPcapFileWriter : public CFileWriterBase {
 public:
    bool Create(const char* path) override;
    /** True whenever the file is open, even if writing failed. */
    bool write_packet(CCapPkt* pkt) override;

 private:
    FilePtr m_file;
    uint32_t m_pkt_count = 0;
};

}  // namespace corvo
