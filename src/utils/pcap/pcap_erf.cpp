#include "utils/pcap/pcap_erf.h"

#include <algorithm>
#include <cerrno>

#include "utils/pcap/pcap_bytes.h"

namespace corvo {

namespace {

constexpr uint32_t ERF_HEADER = 16;
constexpr uint32_t ERF_PAD = 2;
constexpr uint32_t MAX_RECORD = 2015;       // bytes, including header and padding
constexpr uint32_t MAX_WIRE_LENGTH = 2000;  // bytes
constexpr unsigned char TYPE_ETHERNET = 2;
constexpr unsigned char BAD_FLAGS = 0xC0;
constexpr int RECORDS_TO_TEST = 10;

/** The fields of a record header that are used here. */
struct ErfHeader {
    explicit ErfHeader(const unsigned char* bytes)
        : ts(load_le64(bytes)),
          is_ethernet(bytes[8] == TYPE_ETHERNET && (bytes[9] & BAD_FLAGS) == 0),
          rlen(load_be16(bytes + 10)),
          wlen(load_be16(bytes + 14)) {}

    uint64_t ts;  ///< upper half: seconds; lower half: fractions of 1/2^32 s
    bool is_ethernet;
    uint32_t rlen;  ///< bytes of the record
    uint32_t wlen;  ///< bytes of the frame on the wire
};

ErfRecord read_bytes(wtap* context, unsigned char* to, size_t size) {
    const size_t got = fread_unlocked(to, 1, size, context->file);
    if (got == size) return ErfRecord::WHOLE;
    if (!ferror(context->file)) return got == 0 ? ErfRecord::NO_MORE : ErfRecord::CUT_HEADER;
    context->err = errno;
    return ErfRecord::UNREADABLE;
}

/** The same, but inside a record. */
ErfRecord read_rest(wtap* context, unsigned char* to, size_t size) {
    const ErfRecord result = read_bytes(context, to, size);
    return result == ErfRecord::NO_MORE || result == ErfRecord::CUT_HEADER ? ErfRecord::CUT : result;
}

bool is_readable_size(const ErfHeader& header) {
    return header.rlen >= ERF_HEADER + ERF_PAD && header.rlen <= MAX_RECORD && header.wlen <= MAX_WIRE_LENGTH;
}

uint32_t to_nsec(uint64_t ts) {
    return static_cast<uint32_t>(static_cast<double>(ts & 0xFFFFFFFF) * 1e9 / 4294967296.0);
}

}  // namespace

int erf_open(wtap* context, int* err) {
    uint64_t previous = 0;
    for (int i = 0; i < RECORDS_TO_TEST; i++) {
        unsigned char bytes[ERF_HEADER];
        const ErfRecord result = read_bytes(context, bytes, sizeof(bytes));
        if (result == ErfRecord::NO_MORE || result == ErfRecord::CUT_HEADER) break;
        if (result == ErfRecord::UNREADABLE) {
            *err = context->err;
            return -1;
        }
        ErfHeader header(bytes);
        if (!header.is_ethernet || header.ts < previous) return 0;
        if (!skip(context->file, static_cast<int64_t>(header.rlen) - ERF_HEADER)) {
            *err = context->err = errno;
            return -1;
        }
        previous = header.ts;
    }
    rewind(context->file);
    return 1;
}

ErfRecord erf_read_record(wtap* context, CCapPkt* pkt, uint32_t& held, uint32_t& wire) {
    unsigned char bytes[ERF_HEADER];
    ErfRecord result = read_bytes(context, bytes, sizeof(bytes));
    if (result != ErfRecord::WHOLE) return result;
    ErfHeader header(bytes);
    if (!header.is_ethernet) return ErfRecord::NOT_ETHERNET;
    if (!is_readable_size(header)) return ErfRecord::TOO_BIG;
    unsigned char pad[ERF_PAD];
    result = read_rest(context, pad, sizeof(pad));
    if (result != ErfRecord::WHOLE) return result;
    uint32_t size = header.rlen - ERF_HEADER - ERF_PAD;
    result = read_rest(context, pkt->prepare(size), size);
    if (result != ErfRecord::WHOLE) return result;

    pkt->time_sec = static_cast<uint32_t>(header.ts >> 32);
    pkt->time_nsec = to_nsec(header.ts);
    wire = header.wlen;
    held = std::min(wire, size);
    return ErfRecord::WHOLE;
}

int erf_read(wtap* context, CCapPkt* pkt) {
    uint32_t held = 0;
    uint32_t wire = 0;
    switch (erf_read_record(context, pkt, held, wire)) {
        case ErfRecord::WHOLE:
            return static_cast<int>(held);
        case ErfRecord::TOO_BIG:
            printf(" ERF packet size too big  ");
            return -1;
        case ErfRecord::NO_MORE:
        case ErfRecord::CUT_HEADER:
            return 0;
        default:
            return -1;
    }
}

bool CErfFileReader::Create(const char* path, int loop) {
    m_loop = loop;
    if (!path) return false;
    if (!open_file(path)) {
        fprintf(stderr, "Failed to open file `%s'.\n", path);
        return false;
    }
    m_wtap.file = m_file.get();
    int err = 0;
    return erf_open(&m_wtap, &err) == 1;
}

bool CErfFileReader::ReadPacket(CCapPkt* pkt) {
    if (!m_file || !pkt) return false;
    int size = erf_read(&m_wtap, pkt);
    if (size < 1) return false;
    pkt->SetPktLen(static_cast<uint16_t>(size));
    return true;
}

bool CErfFileWriter::Create(const char* path) {
    m_file = create_file(path);
    m_pkt_count = 0;
    return m_file != nullptr;
}

bool CErfFileWriter::write_packet(CCapPkt* pkt) {
    if (!m_file || !pkt) return false;
    uint32_t len = pkt->GetPktLen();
    uint32_t rlen = len + ERF_HEADER + ERF_PAD;
    if (rlen > 0xFFFF) return false;

    unsigned char header[ERF_HEADER + ERF_PAD] = {};
    store_le64(header, static_cast<uint64_t>(pkt->time_sec) << 32 | pkt->time_nsec);
    header[8] = TYPE_ETHERNET;
    store_be16(header + 10, rlen);
    store_be16(header + 14, len);
    size_t written = fwrite(header, 1, sizeof(header), m_file.get());
    if (len > 0) written += fwrite(pkt->GetPktBuffer(), 1, len, m_file.get());
    return written >= rlen;
}

}  // namespace corvo
