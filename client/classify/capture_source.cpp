#include "client/classify/capture_source.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "client/classify/link_layer.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/pcap/pcap_erf.h"
#include "utils/unique_fd.h"
#include "utils/unique_file.h"

namespace brumectl {

namespace {

constexpr uint32_t MAGIC_USEC = 0xA1B2C3D4;
constexpr uint64_t USEC_PER_SEC = 1000000;
constexpr uint32_t FRAMES_BETWEEN_CHECKS = 1024;
constexpr size_t STREAM_BUFFER_BYTES = 65536;

struct PcapCloser {
    void operator()(pcap_t* pcap) const { pcap_close(pcap); }
};
using Pcap = std::unique_ptr<pcap_t, PcapCloser>;

/** A compiled filter. */
class Filter {
 public:
    /** @throws Usage */
    Filter(pcap_t* pcap, const std::string& text) : m_is_set(!text.empty()) {
        if (m_is_set && pcap_compile(pcap, &m_program, text.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
            throw Usage("bad filter '" + text + "': " + pcap_geterr(pcap));
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() {
        if (m_is_set) pcap_freecode(&m_program);
    }

    bool is_set() const { return m_is_set; }
    bool passes(const pcap_pkthdr& header, const unsigned char* bytes) const {
        return !m_is_set || pcap_offline_filter(&m_program, &header, bytes) != 0;
    }

 private:
    bpf_program m_program = {};
    bool m_is_set;
};

/** What the start of a file says about it. */
struct Probe {
    corvo::UniqueFd fd;
    uint32_t magic = 0;
    bool is_classic() const { return magic == MAGIC_USEC || magic == __builtin_bswap32(MAGIC_USEC); }
};

Probe probe(const std::string& path) {
    // Not waiting: the far end of a pipe may never show up.
    Probe out{corvo::UniqueFd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY))};
    if (!out.fd) throw Failure(strerror(errno));
    struct stat st = {};
    if (fstat(out.fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) throw Failure("no regular file");
    if (st.st_size == 0) throw Failure("an empty file");
    if (pread(out.fd.get(), &out.magic, sizeof(out.magic), 0) < 0) throw Failure(strerror(errno));
    return out;
}

/** Of packed bytes. A fault is an error of the stream: what is cut would look like a file's end otherwise. */
ssize_t unpack(void* cookie, char* buf, size_t size) {
    // libpcap may ask again and again before it gives a packet, and no exception can pass it.
    if (interrupt::pending()) return -1;
    auto* gz = static_cast<gzFile>(cookie);
    const int got = gzread(gz, buf, static_cast<unsigned>(std::min<size_t>(size, 1 << 30)));
    int fault = Z_OK;
    if (got <= 0) gzerror(gz, &fault);
    if (fault == Z_OK || fault == Z_STREAM_END) return got;
    if (fault != Z_ERRNO) errno = EBADMSG;
    return -1;
}

/** A stream that unpacks gzip and passes everything else through. */
corvo::UniqueFile unpacking_stream(corvo::UniqueFd fd) {
    gzFile gz = gzdopen(fd.get(), "rb");
    if (!gz) throw Failure("out of memory");
    fd.release();
    cookie_io_functions_t functions = {};
    functions.read = unpack;
    functions.close = [](void* cookie) { return gzclose_r(static_cast<gzFile>(cookie)) == Z_OK ? 0 : EOF; };
    corvo::UniqueFile file(fopencookie(gz, "rb", functions));
    if (!file) {
        gzclose_r(gz);
        throw Failure("out of memory");
    }
    setvbuf(file.get(), nullptr, _IOFBF, STREAM_BUFFER_BYTES);
    return file;
}

class PcapSource : public CaptureSource {
 public:
    PcapSource(Pcap pcap, const std::string& filter, bool is_classic)
        : m_pcap(std::move(pcap)),
          m_dlt(pcap_datalink(m_pcap.get())),
          m_filter(m_pcap.get(), filter),
          m_is_classic(is_classic) {}

    bool is_daemons_format() const override {
        return m_is_classic && m_dlt == DLT_EN10MB && !m_filter.is_set();
    }

    bool next(Frame& frame) override {
        pcap_pkthdr* header = nullptr;
        const unsigned char* bytes = nullptr;
        for (;;) {
            if (++m_read % FRAMES_BETWEEN_CHECKS == 0) interrupt::check();
            const int got = pcap_next_ex(m_pcap.get(), &header, &bytes);
            if (got == PCAP_ERROR) interrupt::check();
            if (got == PCAP_ERROR) m_damage = pcap_geterr(m_pcap.get());
            if (got != 1) return false;
            if (m_filter.passes(*header, bytes) && convert(*header, bytes, frame)) return true;
        }
    }

 private:
    bool convert(const pcap_pkthdr& header, const unsigned char* bytes, Frame& frame) {
        const int64_t wire_size = static_cast<int64_t>(header.len) + link_layer::growth(m_dlt);
        if (wire_size > corvo::CCapPkt::kMaxFrame) return leave_out(m_repairs.too_long);
        if (!link_layer::to_ethernet(m_dlt, bytes, std::min(header.caplen, header.len), frame.bytes))
            return leave_out(m_repairs.unconverted);
        if (header.caplen < header.len) {
            // The lengths in a cut packet's headers would make the daemon pass it over.
            ++m_repairs.padded;
            frame.bytes.resize(static_cast<size_t>(wire_size), '\0');
        }
        frame.usec =
            static_cast<uint64_t>(header.ts.tv_sec) * USEC_PER_SEC + static_cast<uint64_t>(header.ts.tv_usec);
        return true;
    }
    static bool leave_out(uint64_t& counter) {
        ++counter;
        return false;
    }

    Pcap m_pcap;
    int m_dlt;
    Filter m_filter;
    bool m_is_classic;
    uint32_t m_read = 0;
};

class ErfSource : public CaptureSource {
 public:
    /** Null for a file that isn't ERF. One without a whole record passes for it elsewhere. */
    static std::unique_ptr<ErfSource> open(const std::string& path, const std::string& filter) {
        corvo::FilePtr file = corvo::open_to_read(path.c_str());
        corvo::wtap context{.file = file.get()};
        if (!file || corvo::measure(file.get()) < SMALLEST_RECORD) return nullptr;
        int ignored = 0;
        if (corvo::erf_open(&context, &ignored) != 1) return nullptr;
        return std::make_unique<ErfSource>(std::move(file), filter);
    }

    ErfSource(corvo::FilePtr file, const std::string& filter)
        : m_file(std::move(file)),
          m_context{.file = m_file.get()},
          m_dead(pcap_open_dead(DLT_EN10MB, corvo::CCapPkt::kMaxFrame)),
          m_filter(m_dead.get(), filter) {}

    bool is_daemons_format() const override { return !m_filter.is_set(); }

    bool next(Frame& frame) override {
        pcap_pkthdr header = {};
        while (read(header)) {
            if (++m_read % FRAMES_BETWEEN_CHECKS == 0) interrupt::check();
            if (!m_filter.passes(header, m_packet.GetPktBuffer())) continue;
            if (header.caplen == 0) {
                ++m_repairs.unconverted;  // the daemon takes it for the file's end
                continue;
            }
            frame.bytes.assign(reinterpret_cast<const char*>(m_packet.GetPktBuffer()), header.caplen);
            if (header.caplen < header.len) {
                ++m_repairs.padded;
                frame.bytes.resize(header.len, '\0');
            }
            frame.usec = m_packet.time_sec * USEC_PER_SEC + m_packet.time_nsec / 1000;
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

    corvo::FilePtr m_file;
    corvo::wtap m_context;
    corvo::CCapPkt m_packet;
    Pcap m_dead;
    Filter m_filter;
    uint32_t m_read = 0;
};

}  // namespace

std::unique_ptr<CaptureSource> CaptureSource::open(const std::string& path, const std::string& filter) {
    Probe start = probe(path);
    const bool is_classic = start.is_classic();
    corvo::UniqueFile file = unpacking_stream(std::move(start.fd));
    char error[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_MICRO, error));
    if (!pcap) {
        interrupt::check();
        if (auto erf = ErfSource::open(path, filter)) return erf;
        throw Failure(std::string("no capture that can be read: ") + error);
    }
    static_cast<void>(file.release());  // it went over to libpcap
    const int dlt = pcap_datalink(pcap.get());
    if (!link_layer::is_known(dlt)) {
        const char* name = pcap_datalink_val_to_description(dlt);
        throw Failure("frames of link type " + std::to_string(dlt) +
                      (name ? std::string(" (") + name + ")" : "") + " can't be converted to Ethernet");
    }
    return std::make_unique<PcapSource>(std::move(pcap), filter, is_classic);
}

}  // namespace brumectl
