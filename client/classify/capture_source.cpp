#include "client/classify/capture_source.h"

#include <pcap/pcap.h>
#include <unistd.h>

#include <algorithm>
#include <type_traits>

#include "client/classify/byte_stream.h"
#include "client/classify/link_layer.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/pcap/pcap_erf.h"

namespace brumectl {

namespace {

constexpr uint64_t USEC_PER_SEC = 1000000;
constexpr uint32_t FRAMES_BETWEEN_CHECKS = 1024;

/** In the file they have no sign. */
using Seconds = std::make_unsigned_t<decltype(timeval::tv_sec)>;

static_assert(sizeof(pcap_pkthdr::ts) == 2 * sizeof(long), "libpcap's own record");

struct PcapCloser {
    void operator()(pcap_t* pcap) const { pcap_close(pcap); }
};
using Pcap = std::unique_ptr<pcap_t, PcapCloser>;

/** A compiled filter. */
class Filter {
 public:
    /** Throws Usage. */
    Filter(pcap_t* pcap, const std::string& text) : m_is_set(!text.empty()) {
        if (m_is_set && pcap_compile(pcap, &m_program, text.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
            throw Usage("bad filter '" + text + "': " + pcap_geterr(pcap));
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() {
        if (m_is_set) pcap_freecode(&m_program);
    }

    bool passes(const pcap_pkthdr& header, const unsigned char* bytes) const {
        return !m_is_set || pcap_offline_filter(&m_program, &header, bytes) != 0;
    }

 private:
    bpf_program m_program = {};
    bool m_is_set;
};

class PcapSource : public CaptureSource {
 public:
    PcapSource(std::unique_ptr<char[]> buffer, Pcap pcap, const std::string& filter, uint64_t size)
        : CaptureSource(size),
          m_buffer(std::move(buffer)),
          m_pcap(std::move(pcap)),
          m_link(pcap_datalink(m_pcap.get())),
          m_filter(m_pcap.get(), filter) {}

    int link() const override { return m_link; }

    double progress() const override {
        // `ftello` would cost a system call to flush; the descriptor's own position is at most a
        // buffer ahead.
        const int fd = m_size > 0 ? fileno(pcap_file(m_pcap.get())) : -1;
        const off_t at = fd >= 0 ? lseek(fd, 0, SEEK_CUR) : 0;
        return at > 0 ? std::min(1.0, static_cast<double>(at) / static_cast<double>(m_size)) : 0;
    }

    bool next(RawFrame& frame) override {
        pcap_pkthdr* header = nullptr;
        const unsigned char* bytes = nullptr;
        for (;;) {
            if (++m_read % FRAMES_BETWEEN_CHECKS == 0) interrupt::check();
            const int got = pcap_next_ex(m_pcap.get(), &header, &bytes);
            if (got == PCAP_ERROR) interrupt::check();
            if (got == PCAP_ERROR) m_damage = pcap_geterr(m_pcap.get());
            if (got != 1) return false;
            if (!m_filter.passes(*header, bytes)) continue;
            frame = {bytes, std::min(header->caplen, header->len), header->len,
                     static_cast<Seconds>(header->ts.tv_sec) * USEC_PER_SEC +
                         static_cast<uint64_t>(header->ts.tv_usec)};
            return true;
        }
    }

 private:
    std::unique_ptr<char[]> m_buffer;
    Pcap m_pcap;
    int m_link;
    Filter m_filter;
    uint32_t m_read = 0;
};

class ErfSource : public CaptureSource {
 public:
    /**
     * Null if the file isn't ERF. Stricter than the reader itself, which accepts a file without a
     * complete record.
     */
    static std::unique_ptr<ErfSource> open(const std::string& path, const std::string& filter) {
        corvo::FilePtr file = corvo::open_to_read(path.c_str());
        if (!file) return nullptr;
        std::unique_ptr<char[]> buffer = give_buffer(file.get());
        corvo::wtap context{.file = file.get()};
        if (corvo::measure(file.get()) < SMALLEST_RECORD) return nullptr;
        int ignored = 0;
        if (corvo::erf_open(&context, &ignored) != 1) return nullptr;
        return std::make_unique<ErfSource>(std::move(buffer), std::move(file), filter);
    }

    ErfSource(std::unique_ptr<char[]> buffer, corvo::FilePtr file, const std::string& filter)
        : CaptureSource(static_cast<uint64_t>(corvo::measure(file.get()))),
          m_buffer(std::move(buffer)),
          m_file(std::move(file)),
          m_context{.file = m_file.get()},
          m_dead(pcap_open_dead(DLT_EN10MB, corvo::CCapPkt::kMaxFrame)),
          m_filter(m_dead.get(), filter) {}

    int link() const override { return DLT_EN10MB; }

    double progress() const override {
        const off_t at = ftello(m_file.get());
        return at > 0 && m_size > 0 ? static_cast<double>(at) / static_cast<double>(m_size) : 0;
    }

    bool next(RawFrame& frame) override {
        pcap_pkthdr header = {};
        while (read(header)) {
            if (++m_read % FRAMES_BETWEEN_CHECKS == 0) interrupt::check();
            if (!m_filter.passes(header, m_packet.GetPktBuffer())) continue;
            frame = {m_packet.GetPktBuffer(), std::min(header.caplen, header.len), header.len,
                     m_packet.time_sec * USEC_PER_SEC + m_packet.time_nsec / 1000};
            return true;
        }
        return false;
    }

 private:
    static constexpr int64_t SMALLEST_RECORD = 18;

    bool read(pcap_pkthdr& header) {
        using corvo::ErfRecord;
        const struct {
            ErfRecord end;
            const char* text;
        } damages[] = {
            {ErfRecord::CUT_HEADER, "the file ends within a record"},
            {ErfRecord::CUT, "the file ends within a record"},
            {ErfRecord::NOT_ETHERNET, "a record isn't of Ethernet"},
            {ErfRecord::TOO_BIG, "a record's length is impossible"},
            {ErfRecord::UNREADABLE, "the file can't be read"},
        };
        const ErfRecord end = corvo::erf_read_record(&m_context, &m_packet, header.caplen, header.len);
        for (const auto& damage : damages)
            if (end == damage.end) m_damage = damage.text;
        return end == ErfRecord::WHOLE;
    }

    std::unique_ptr<char[]> m_buffer;
    corvo::FilePtr m_file;
    corvo::wtap m_context;
    corvo::CCapPkt m_packet;
    Pcap m_dead;
    Filter m_filter;
    uint32_t m_read = 0;
};

}  // namespace

std::unique_ptr<CaptureSource> CaptureSource::open(const std::string& path, const Setup& setup) {
    ByteStream stream = ByteStream::open(path, setup.idle);
    char error[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(
        pcap_fopen_offline_with_tstamp_precision(stream.file.get(), PCAP_TSTAMP_PRECISION_MICRO, error));
    if (!pcap) {
        interrupt::check();
        std::unique_ptr<CaptureSource> erf;
        if (!stream.path.empty()) erf = ErfSource::open(stream.path, setup.filter);
        if (erf) return erf;
        throw Failure(std::string("no capture that can be read: ") + error);
    }
    static_cast<void>(stream.file.release());  // libpcap owns it now
    const int link = pcap_datalink(pcap.get());
    if (!link_layer::is_known(link)) {
        const char* name = pcap_datalink_val_to_description(link);
        throw Failure("frames of link type " + std::to_string(link) +
                      (name ? std::string(" (") + name + ")" : "") + " can't be read");
    }
    return std::make_unique<PcapSource>(std::move(stream.buffer), std::move(pcap), setup.filter, stream.size);
}

}  // namespace brumectl
