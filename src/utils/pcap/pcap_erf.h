#pragma once
// The ERF format: records of a 16-byte header, 2 bytes of padding and a frame, back to back, without a
// header of the file.

#include <cstdint>

#include "utils/pcap/pcap_reader.h"
#include "utils/pcap/pcap_writer.h"

namespace corvo {

/** What the two functions of the format work on. */
struct wtap {
    FILE* file = nullptr;  ///< not owned
    int err = 0;           ///< errno of the last failed read or seek
};

/**
 * Whether the file starts with ERF records: 1 if its first ten, or all if there are fewer, look like
 * Ethernet records in the order of their times, so an empty file passes; 0 if not; -1, with `*err` an errno
 * value, if it can't be read. After 1 the position is the file's start.
 */
int erf_open(wtap* context, int* err);

/** How the reading of a record ended. */
enum class ErfRecord { WHOLE, NO_MORE, CUT_HEADER, CUT, NOT_ETHERNET, TOO_BIG, UNREADABLE };

/**
 * Reads the next record into `pkt`, its time included but for the packet's length, and prints nothing. `held`
 * is the length of what the record holds of the frame, `wire` that of the frame on the wire.
 */
ErfRecord erf_read_record(wtap* context, CCapPkt* pkt, uint32_t& held, uint32_t& wire);

/**
 * Reads the next record into `pkt`. The result is the length of the frame on the wire, or of what the record
 * holds of it; 0 at the end of the file, -1 for a damaged record. Sets the time, not the packet's length.
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
 * back gives the same seconds, and fewer nanoseconds.
 */
class CErfFileWriter : public CFileWriterBase {
 public:
    bool Create(const char* path) override;
    /** False, too, for a frame that is too long for the record's 16-bit length. */
    bool write_packet(CCapPkt* pkt) override;

 private:
    FilePtr m_file;
    uint32_t m_pkt_count = 0;
};

}  // namespace corvo
