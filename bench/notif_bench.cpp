// The cost of one event to the daemon, by the number of subscribed sockets and what their owners do: read,
// never read, or have gone.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_logger.h"
#include "infra/corvo_notif_hub.h"
#include "support/temp_dir.h"
#include "utils/unique_fd.h"

namespace {

using corvo::notif::Event;

/** Fewer than fit in a socket's queue of the system's default length. */
constexpr int EVENTS = 8;

enum Owner { READS, NEVER_READS, IS_GONE };

/** Logs only to a file, so that failed deliveries cost what they cost the daemon. */
class FileLogger : public corvo::Logger::LoggerInstance {
 public:
    explicit FileLogger(const std::string& path) : LoggerInstance(corvo::Logger::INFO, path) {
        corvo::Logger::set_logger(this);
    }
    ~FileLogger() override { corvo::Logger::set_logger(nullptr); }
    void write(const char*, va_list, bool) override {}
    void flush() override {}
};

/** Datagram sockets bound in a separate folder. */
class Sockets {
 public:
    explicit Sockets(int count) {
        for (int i = 0; i < count; i++) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path(i).copy(address.sun_path, sizeof address.sun_path - 1);
            m_fds.emplace_back(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            if (bind(m_fds.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
                throw corvo::Exception("can't bind " + path(i));
        }
    }
    std::string path(int i) const { return m_dir.file(std::to_string(i)); }
    void drain() {
        std::array<char, 1024> datagram{};
        for (const corvo::UniqueFd& fd : m_fds)
            while (recv(fd.get(), datagram.data(), datagram.size(), 0) >= 0) {
            }
    }
    /** Leaves the files behind, as a killed client would. */
    void close_all() { m_fds.clear(); }

 private:
    test::TempDir m_dir;
    std::vector<corvo::UniqueFd> m_fds;
};

void notify(benchmark::State& state, Owner owner) {
    const test::TempDir dir;
    const FileLogger logger(dir.file("log"));
    const int count = static_cast<int>(state.range(0));
    Sockets sockets(count);
    corvo::notif::Notif hub;
    for (int i = 0; i < count; i++)
        hub.subscribe(std::make_unique<corvo::notif::SocketSub>(sockets.path(i)));
    const auto raise = [&hub](int events) {
        for (int i = 0; i < events; i++)
            hub.notify(
                Event("flows", "flow_table.full", corvo::notif::SEV_WARN, "all 16384 flows are in use"));
    };
    if (owner == IS_GONE) sockets.close_all();
    if (owner == NEVER_READS) raise(1000);
    for (auto _ : state) {
        raise(EVENTS);
        if (owner != READS || count == 0) continue;
        state.PauseTiming();
        sockets.drain();
        state.ResumeTiming();
    }
    using benchmark::Counter;
    state.counters["per_event"] =
        Counter(EVENTS, Counter::kIsIterationInvariantRate | Counter::kInvert, Counter::kIs1000);
}
BENCHMARK_CAPTURE(notify, reading, READS)->ArgName("sockets")->Arg(0)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(notify, full, NEVER_READS)->ArgName("sockets")->Arg(1)->Arg(100);
BENCHMARK_CAPTURE(notify, dead, IS_GONE)->ArgName("sockets")->Arg(1)->Arg(100);

}  // namespace
