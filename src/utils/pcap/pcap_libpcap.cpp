#include "utils/pcap/pcap_libpcap.h"

#include <algorithm>
#include <cerrno>

namespace corvo {

namespace {

constexpr uint32_t MAGIC = 0xA1B2C3D4;
constexpr uint32_t MAGIC_FLIPPED = 0xD4C3B2A1;
constexpr uint32_t MAGIC_NSEC = 0xA1B23C4D;
constexpr uint32_t LINK_TYPE_ETHERNET = 1;

struct pcap_file_header {
    uint32_t magic;
    uint16_t version_major;
    uint16_t version_minor;
    uint32_t time_zone;
    uint32_t accuracy;
    uint32_t snapshot_length;
    uint32_t link_type;
};
static_assert(sizeof(pcap_file_header) == 24);

bool write_file_header(FILE* file, uint32_t magic) {
    pcap_file_header header = {magic, 2, 4, 0, 0, 2000, LINK_TYPE_ETHERNET};
    return fwrite(&header, sizeof(header), 1, file) == 1;
}

bool write_record(FILE* file, const sf_pkthdr& header, const unsigned char* frame) {
    size_t written = fwrite(&header, 1, sizeof(header), file);
    if (header.len > 0) written += fwrite(frame, 1, header.len, file);
    return written == sizeof(header) + header.len;
}

}  // namespace

bool LibPCapReader::Create(const char* path, int loop) {
    m_loop = loop;
    if (!path) return false;
    if (m_is_open) return true;
    if (!open_file(path)) {
        printf(" failed to open cap file %s : errno : %d\n", path, errno);
        return false;
    }
    if (!init()) {
        m_file.reset();
        return false;
    }
    m_is_open = true;
    return true;
}

bool LibPCapReader::init() {
    pcap_file_header header;
    if (fread_unlocked(&header, sizeof(header), 1, m_file.get()) != 1) return false;
    m_is_flip = header.magic == MAGIC_FLIPPED;
    m_is_valid = m_is_flip || header.magic == MAGIC;
    return m_is_valid;
}

bool LibPCapReader::read_header(sf_pkthdr& header) {
    if (fread_unlocked(&header, sizeof(header), 1, m_file.get()) != 1) return false;
    if (!m_is_flip) return true;
    for (uint32_t* word : {&header.ts_sec, &header.ts_usec, &header.caplen, &header.len})
        *word = __builtin_bswap32(*word);
    return true;
}

bool LibPCapReader::ReadPacket(CCapPkt* pkt) {
    if (!is_ready(pkt)) return false;
    if (m_loop > 0 && static_cast<uint64_t>(ftello(m_file.get())) == m_file_size) Rewind();

    sf_pkthdr header;
    if (!read_header(header) || header.len > CCapPkt::kMaxFrame) return false;
    uint32_t size = std::min(header.len, header.caplen);
    unsigned char* frame = pkt->prepare(size);
    if (fread_unlocked(frame, 1, size, m_file.get()) != size) return false;
    if (!skip(m_file.get(), header.caplen - size)) return false;

    pkt->SetPktLen(static_cast<uint16_t>(size));
    pkt->time_sec = header.ts_sec;
    pkt->time_nsec = header.ts_usec * 1000;
    if (m_loop > 0) m_loop--;
    return true;
}

uint32_t LibPCapReader::readNumOfPackets(CCapPkt* pkt) {
    m_last_pkt_count = 0;
    if (!is_ready(pkt)) return 0;
    uint32_t count = 0;
    sf_pkthdr header;
    while (read_header(header) && header.len <= CCapPkt::kMaxFrame && skip(m_file.get(), header.caplen))
        count++;
    Rewind();
    return count;
}

void LibPCapReader::Rewind() {
    if (!m_is_open || !m_file) return;
    rewind(m_file.get());
    init();
}

bool LibPCapWriter::Create(const char* path) {
    if (!path) return false;
    if (m_is_open) return true;
    m_file = create_file(path);
    if (!m_file) return false;
    m_pkt_count = 0;
    if (!init()) {
        m_file.reset();
        return false;
    }
    m_is_open = true;
    return true;
}

bool LibPCapWriter::init() {
    return write_file_header(m_file.get(), MAGIC);
}

bool LibPCapWriter::write_packet(CCapPkt* pkt) {
    if (!m_is_open || !pkt) return false;
    uint32_t len = pkt->GetPktLen();
    m_total_calls++;
    if (!write_record(m_file.get(), {pkt->time_sec, pkt->time_nsec / 1000, len, len}, pkt->GetPktBuffer()))
        return false;
    m_pkt_count++;
    return true;
}

void LibPCapWriter::Close() {
    m_file.reset();
    m_is_open = false;
}

bool CPcapFileWriter::Create(const char* path) {
    m_file = create_file(path);
    m_pkt_count = 0;
    return m_file != nullptr;
}

bool CPcapFileWriter::write_packet(CCapPkt* pkt) {
    if (!m_file || !pkt) return false;
    if (m_pkt_count == 0) write_file_header(m_file.get(), MAGIC_NSEC);
    uint32_t len = pkt->GetPktLen();
    write_record(m_file.get(), {pkt->time_sec, pkt->time_nsec, len, len}, pkt->GetPktBuffer());
    m_pkt_count++;
    return true;
}

}  // namespace corvo
