#include "client/classify/piece.h"

#include <algorithm>
#include <cstring>

#include "utils/pcap/pcap_libpcap.h"

namespace brumectl {

namespace {

constexpr uint64_t USEC_PER_SEC = 1000000;
/** A few of the largest frames; with more, the buffer would only overflow the processor's caches. */
constexpr size_t BUFFER_BYTES = 256UL * 1024;
/** Each may cost a scan of all frames; a reply with more doesn't belong to this piece. */
constexpr uint64_t MAX_STRAYS = 64;

// Magic, version 2.4, no time zone, accuracy 0, frames of up to 65535 bytes, Ethernet.
struct FileHeader {
    uint32_t magic = 0xA1B2C3D4;
    uint16_t major = 2, minor = 4;
    uint32_t zone = 0, accuracy = 0, snapshot_length = corvo::CCapPkt::kMaxFrame, link_type = 1;
};
static_assert(sizeof(FileHeader) == 24);

bool is_text(const Json::Value& value, const std::string& text) {
    return value.isString() && value.asString() == text;
}

bool fits(const PieceFrame& frame, const Json::Value& packet) {
    return frame.is_ip && packet["len"].isUInt() && packet["len"].asUInt() == frame.len &&
           is_text(packet["src"], frame.src) && is_text(packet["dst"], frame.dst);
}

}  // namespace

PieceWriter::PieceWriter(Copies& copies) : m_copies(copies), m_buffer(BUFFER_BYTES) {}

void PieceWriter::put(const void* bytes, size_t size) {
    memcpy(m_buffer.data() + m_used, bytes, size);
    m_used += size;
}

void PieceWriter::begin() {
    const FileHeader header;
    m_used = 0;
    m_flushed = 0;
    m_frames = 0;
    put(&header, sizeof(header));
}

void PieceWriter::add(const EthernetFrame& frame, uint64_t usec) {
    const uint32_t size = frame.size();
    if (m_used + sizeof(corvo::sf_pkthdr) + size > m_buffer.size()) flush();
    const corvo::sf_pkthdr header = {static_cast<uint32_t>(usec / USEC_PER_SEC),
                                     static_cast<uint32_t>(usec % USEC_PER_SEC), size, size};
    put(&header, sizeof(header));
    m_last = m_used;
    put(frame.head, frame.head_size);
    put(frame.rest, frame.rest_size);
    memset(m_buffer.data() + m_used, 0, frame.zeros);
    m_used += frame.zeros;
    ++m_frames;
}

void PieceWriter::flush() {
    m_copies.write(m_flushed, m_buffer.data(), m_used);
    m_flushed += m_used;
    m_used = 0;
}

void PieceWriter::finish() {
    flush();
    m_copies.finish(m_flushed);
}

PieceFrame& Piece::add_left_out(uint32_t reason, uint32_t size) {
    PieceFrame& out = m_frames.emplace_back();
    out.len = static_cast<uint16_t>(std::min<uint32_t>(size, corvo::CCapPkt::kMaxFrame));
    out.reason = reason;
    return out;
}

PieceFrame& Piece::add(const unsigned char* bytes, uint32_t size) {
    PieceFrame& out = add_left_out(0, size);
    m_packet.updatePacketData(bytes, size);
    m_packet.SetPktLen(out.len);
    out.is_ip = m_packet.parse();
    if (!out.is_ip) return out;
    out.src = m_packet.GetSrcAddr();
    out.dst = m_packet.GetDstAddr();
    return out;
}

uint64_t Piece::align(const Json::Value& packets) {
    uint64_t strays = 0;
    auto next = m_frames.begin();
    for (const Json::Value& packet : packets) {
        auto at = next;
        if (packet.isObject() && strays < MAX_STRAYS)
            while (at != m_frames.end() && !fits(*at, packet))
                ++at;
        else
            at = m_frames.end();
        if (at == m_frames.end()) {
            ++strays;
            continue;
        }
        at->answer = &packet;
        next = at + 1;
    }
    return strays;
}

}  // namespace brumectl
