#include "utils/pcap/pcap_reader.h"

#include <cerrno>
#include <cinttypes>
#include <cstdlib>

#include "utils/pcap/pcap_erf.h"
#include "utils/pcap/pcap_libpcap.h"

namespace corvo {

namespace {

constexpr uint64_t GIB = 1ULL << 30;
constexpr size_t STREAM_BUFFER = 1 << 18;
constexpr capture_type ALL_TYPES[] = {CAPTURE_LIBPCAP, CAPTURE_ERF};

bool can_be_opened(const char* path) {
    if (open_to_read(path)) return true;
    int err = errno;
    if (err == ENOENT)
        printf("\nERROR: Cap file not found %s\n\n", path);
    else
        printf("\nERROR: Failed to open cap file '%s' with errno %d\n\n", path, err);
    return false;
}

}  // namespace

void CCapReaderBase::set_to_pkt(int64_t to) {
    m_to_pkt = to;
    if (to >= 1 && m_from_pkt > static_cast<uint64_t>(to)) {
        printf("\nError: 'to_pkt' is smaller than 'from_pkt'. Fix arguments and run again.");
        exit(1);
    }
}

void CCapReaderBase::set_opt_config(uint64_t from, int64_t to) {
    set_from_pkt(from);
    set_to_pkt(to);
    m_start_offset = get_curr_pkt_offset();
    m_next_progress = m_start_offset + GIB;
}

uint64_t CCapReaderBase::get_curr_pkt_offset() const {
    if (m_to_pkt < 0 || !m_file) return 0;
    return static_cast<uint64_t>(ftello(m_file.get()));
}

void CCapReaderBase::print_progress() {
    if (get_curr_pkt_offset() <= m_next_progress) return;
    printf("%llu GB were processed\n", static_cast<unsigned long long>(m_next_progress / GIB));
    m_next_progress += GIB;
}

bool CCapReaderBase::open_file(const char* path) {
    FilePtr file = open_to_read(path);
    if (!file) return false;
    // The buffer only adds speed; without it the stream allocates its own.
    auto buffer = std::make_unique_for_overwrite<char[]>(STREAM_BUFFER);
    setvbuf(file.get(), buffer.get(), _IOFBF, STREAM_BUFFER);
    int64_t size = measure(file.get());
    if (size < 0) {
        file.reset();
        return false;
    }
    m_file = std::move(file);
    m_stream_buffer = std::move(buffer);
    m_file_size = static_cast<uint64_t>(size);
    return true;
}

bool CRawPacketReader::ReadPacket(CCapPkt* pkt) {
    if (m_is_read || !pkt) return false;
    m_is_read = true;
    pkt->updatePacketData(m_frame, m_len);
    pkt->SetPktLen(m_len);
    return true;
}

CWholeCapReader::CWholeCapReader(CCapReaderBase& source) {
    source.set_opt_config(0, -1);
    auto pkt = std::make_unique<CCapPkt>();
    while (source.ReadPacket(pkt.get())) {
        m_packets.push_back(std::move(pkt));
        source.setFirstPacket(true);
        pkt = std::make_unique<CCapPkt>();
    }
}

bool CWholeCapReader::ReadPacket(CCapPkt* pkt) {
    static size_t next = 0;
    if (!pkt || next >= m_packets.size()) return false;
    m_packets[next++]->clone(pkt);
    return true;
}

std::vector<std::unique_ptr<CCapPkt>> CWholeCapReader::getLpPackets(CCapReaderBase& reader) {
    std::vector<std::unique_ptr<CCapPkt>> packets;
    CCapPkt pkt;
    while (reader.ReadPacket(&pkt))
        packets.push_back(pkt.clone());
    return packets;
}

std::unique_ptr<CCapReaderBase> CCapReaderFactory::CreateReaderInstace(capture_type type) {
    switch (type) {
        case CAPTURE_LIBPCAP:
            return std::make_unique<LibPCapReader>();
        case CAPTURE_ERF:
            return std::make_unique<CErfFileReader>();
    }
    printf("Got unsupported file type");
    return nullptr;
}

std::unique_ptr<CCapReaderBase> CCapReaderFactory::CreateReader(const char* path, int loop) {
    if (!path) {
        printf("Got null file name");
        return nullptr;
    }
    if (!can_be_opened(path)) return nullptr;
    for (capture_type type : ALL_TYPES) {
        auto reader = CreateReaderInstace(type);
        if (reader && reader->Create(path, loop)) return reader;
    }
    printf("\nERROR: file %s format not supported", path);
    printf("\nERROR: formats supported are LIBPCAP and ERF. other formats are deprecated\n");
    return nullptr;
}

std::unique_ptr<CCapReaderBase> CCapReaderFactory::CreateReader(const unsigned char* frame, uint16_t len) {
    return std::make_unique<CRawPacketReader>(frame, len);
}

std::unique_ptr<CWholeCapReader> CCapReaderFactory::CreateWholeCapReader(const char* path, int) {
    auto source = CreateReader(path, 0);
    return source ? std::make_unique<CWholeCapReader>(*source) : nullptr;
}

}  // namespace corvo
