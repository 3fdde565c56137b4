#pragma once
// The ERF format: records of a 16-byte header, 2 bytes of padding and a frame, back to back, with no
// file header.

#include <cstdint>

#include "utils/pcap/pcap_reader.h"
#include "utils/pcap/pcap_writer.h"

namespace corvo {

/** State shared by the format's functions. */
struct wtap {
    FILE* file = nullptr;  ///< not owned
    int err = 0;           ///< errno of the last failed read or seek
};

/**
 * Whether the file starts with ERF records. Returns 1 if its first ten (or all, if fewer) look like Ethernet
 * records in order of time, so an empty file passes; 0 if not; -1 if the file can't be read, with an errno
 * value in `*err`. After 1, the position is the start of the file.
 */
int erf_open(wtap* context, int* err);

/** Outcome of reading a record. */
enum class ErfRecord { WHOLE, NO_MORE, CUT_HEADER, CUT, NOT_ETHERNET, TOO_BIG, UNREADABLE };

/**
 * Reads the next record into `pkt`, including its time but not the packet's length. Prints nothing. `held` is
 * set to the number of bytes of the frame in the record, `wire` to the frame's length on the wire.
 */
ErfRecord erf_read_record(wtap* context, CCapPkt* pkt, uint32_t& held, uint32_t& wire);

/**
 * Reads the next record into `pkt`. Returns the frame's length on the wire, or the number of bytes in the
 * record if that is less; 0 at the end of the file, -1 for a damaged record. Sets the time but not the
 * packet's length.
 */
int erf_read(wtap* context, CCapPkt* pkt);

class CErfFileReader : public CCapReaderBase {
 public:
    bool ReadPacket(CCapPkt* pkt) override;
    bool Create(const char* path, int loop) override;

 private:
    wtap m_wtap;
};

/**
 * Writes ERF records whose times hold nanoseconds where the format has a binary fraction: reading such a file
 * back yields the same seconds but fewer nanoseconds.
 */
class CErfFileWriter : public CFileWriterBase {
 public:
    bool Create(const char* path) override;
    /** Also false for a frame that is too long for the record's 16-bit length. */
    bool write_packet(CCapPkt* pkt) override;

 private:
    FilePtr m_file;
    uint32_t m_pkt_count = 0;
};

}  // namespace corvo
