#include "client/classify/piece.h"

#include "utils/pcap/pcap_libpcap.h"

namespace brumectl {

namespace {

constexpr uint64_t USEC_PER_SEC = 1000000;
/** Each one may cost a walk over all frames; an answer with more is none to this piece. */
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

Piece::Piece(std::unique_ptr<TempFile> copy) : m_copy(std::move(copy)) {
    if (!m_copy) return;
    const FileHeader header;
    m_copy->write(&header, sizeof(header));
}

void Piece::write(const CaptureSource::Frame& frame) {
    const auto size = static_cast<uint32_t>(frame.bytes.size());
    const corvo::sf_pkthdr header = {static_cast<uint32_t>(frame.usec / USEC_PER_SEC),
                                     static_cast<uint32_t>(frame.usec % USEC_PER_SEC), size, size};
    m_copy->write(&header, sizeof(header));
    m_copy->write(frame.bytes);
}

void Piece::add(const CaptureSource::Frame& frame, uint64_t number) {
    PieceFrame& out = m_frames.emplace_back();
    out.usec = frame.usec;
    out.number = number;
    out.len = static_cast<uint16_t>(frame.bytes.size());
    m_packet.updatePacketData(reinterpret_cast<const unsigned char*>(frame.bytes.data()),
                              static_cast<unsigned>(frame.bytes.size()));
    m_packet.SetPktLen(out.len);
    m_bytes += out.len;
    out.is_ip = m_packet.parse();
    if (!out.is_ip) return;
    out.src = m_packet.GetSrcAddr();
    out.dst = m_packet.GetDstAddr();
    if (m_copy) write(frame);
}

const std::string& Piece::finish_copy() {
    m_copy->close();
    return m_copy->path();
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
