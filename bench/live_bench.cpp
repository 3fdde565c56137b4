// Live capture by the whole daemon with the engine we ship. Frames cross a pair of virtual interfaces in a
// separate network namespace. The reported time is the daemon's CPU time. Needs root.

#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "bench/flow_frames.h"
#include "bench/live_daemon.h"
#include "support/net_namespace.h"
#include "utils/unique_fd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t FRAMES = 500000;

double cpu_sec(pid_t pid) {
    clockid_t clock = 0;
    timespec now{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &now) != 0)
        throw std::runtime_error("no CPU clock of the daemon");
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/** Sends frames of the flows in turn, many per system call. */
class Sender {
 public:
    explicit Sender(const char* ifname) : m_fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
        if (bind(m_fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) < 0)
            throw std::runtime_error("can't send on the virtual interface");
        for (size_t i = 0; i < BATCH; i++) {
            m_parts[i] = {m_frames[i].data(), m_frames[i].size()};
            m_messages[i].msg_hdr.msg_iov = &m_parts[i];
            m_messages[i].msg_hdr.msg_iovlen = 1;
        }
    }

    /**
     * `rate` is in frames per second, 0 means as fast as possible; `burst` frames, at most BATCH, are sent by
     * one system call. Returns the seconds taken.
     */
    double send(uint32_t flows, uint32_t rate, uint32_t burst) {
        const auto start = Clock::now();
        uint32_t sent = 0;
        while (sent < FRAMES) {
            for (uint32_t i = 0; i < burst; i++)
                m_frames[i].set_flow((sent + i) % flows);
            const uint32_t wanted = std::min(burst, FRAMES - sent);
            const int count = sendmmsg(m_fd.get(), m_messages.data(), wanted, 0);
            if (count <= 0) throw std::runtime_error("sending failed");
            sent += static_cast<uint32_t>(count);
            if (rate > 0)
                std::this_thread::sleep_until(start + std::chrono::microseconds(sent * 1000000ULL / rate));
        }
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    void make_unknown() {
        for (bench::FlowFrame& frame : m_frames)
            frame.make_unknown();
    }

    static constexpr uint32_t BATCH = 64;

 private:
    corvo::UniqueFd m_fd;
    std::array<bench::FlowFrame, BATCH> m_frames;
    std::array<iovec, BATCH> m_parts = {};
    std::array<mmsghdr, BATCH> m_messages = {};
};

struct Counts {
    uint64_t received = 0;
    uint64_t dropped = 0;
};

Counts counts_of(const bench::LiveDaemon& daemon) {
    const Json::Value sample =
        daemon.ask("collect", test::parse(R"({"cmd":"show","component":"interfaces"})"))["interfaces"][0];
    return {sample["packets"].asUInt64(), sample["drops"].asUInt64()};
}

/** The counts once all sent frames are accounted for. */
Counts settled(const bench::LiveDaemon& daemon, uint64_t expected) {
    Counts counts = counts_of(daemon);
    for (int i = 0; i < 100 && counts.received + counts.dropped < expected; i++) {
        poll(nullptr, 0, 20);
        counts = counts_of(daemon);
    }
    return counts;
}

/** Whether there is a pair of virtual interfaces now, "tap" and "feed". */
bool have_wire(const test::NetNamespace& net) {
    constexpr const char* WIRE =
        "echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6; ip link add tap type veth peer name feed && "
        "ip link set tap up && ip link set feed up";
    return net.entered() && std::system(WIRE) == 0;
}

void report(benchmark::State& state, const Counts& counts, double sending_sec, double used_sec) {
    state.SetIterationTime(used_sec);
    state.counters["sent_per_sec"] = FRAMES / sending_sec;
    state.counters["received"] = static_cast<double>(counts.received) / FRAMES;
    state.counters["dropped"] = static_cast<double>(counts.dropped) / FRAMES;
    state.counters["per_frame"] = used_sec / static_cast<double>(counts.received);
}

double send(const benchmark::State& state) {
    return Sender("feed").send(static_cast<uint32_t>(state.range(0)), static_cast<uint32_t>(state.range(1)),
                               static_cast<uint32_t>(state.range(2)));
}

void capture(benchmark::State& state) {
    const test::NetNamespace net;
    if (!have_wire(net)) return state.SkipWithError("no network namespace with a pair of virtual interfaces");
    // Raises the priority of sender and daemon, so that lost frames are the daemon's fault and not
    // other work's.
    setpriority(PRIO_PROCESS, 0, -19);
    const bench::LiveDaemon daemon("tap", "workers = " + std::to_string(state.range(3)));
    for (auto _ : state) {  // one iteration: a daemon's counters start at 0
        const double cpu_before = cpu_sec(daemon.pid());
        const double sending_sec = send(state);
        const Counts counts = settled(daemon, FRAMES);
        report(state, counts, sending_sec, cpu_sec(daemon.pid()) - cpu_before);
    }
}

/** When the process fell idle, to a millisecond. Asking it would hold it up. */
Clock::time_point end_of_work(pid_t pid) {
    constexpr double WORKS = 0.2e-3;
    Clock::time_point end = Clock::now();
    double used = cpu_sec(pid);
    for (int idle = 0; idle < 20; idle++) {
        poll(nullptr, 0, 1);
        const double now = cpu_sec(pid);
        if (now - std::exchange(used, now) < WORKS) continue;
        end = Clock::now();
        idle = 0;
    }
    return end;
}

/**
 * What is waiting in the rings of a daemon that was held is worked off with all CPUs to itself: how work
 * spreads over workers, without a sender that takes a CPU from them. The reported time is that of the wall.
 */
void drain(benchmark::State& state) {
    const test::NetNamespace net;
    if (!have_wire(net)) return state.SkipWithError("no network namespace with a pair of virtual interfaces");
    setpriority(PRIO_PROCESS, 0, -19);
    const bench::LiveDaemon daemon(
        "tap", "workers = " + std::to_string(state.range(1)) + "\nring_bytes = " + std::to_string(256 << 20));
    for (auto _ : state) {
        kill(daemon.pid(), SIGSTOP);
        Sender sender("feed");
        if (state.range(2)) sender.make_unknown();
        sender.send(static_cast<uint32_t>(state.range(0)), 0, Sender::BATCH);
        const double cpu_before = cpu_sec(daemon.pid());
        const auto start = Clock::now();
        kill(daemon.pid(), SIGCONT);
        const double sec = std::chrono::duration<double>(end_of_work(daemon.pid()) - start).count();
        if (counts_of(daemon).received != FRAMES) throw std::runtime_error("not all is worked off");
        state.SetIterationTime(sec);
        state.counters["per_frame"] = sec / FRAMES;
        state.counters["per_frame_of_cpu"] = (cpu_sec(daemon.pid()) - cpu_before) / FRAMES;
    }
}

/** The least program in the daemon's place. */
void floor(benchmark::State& state) {
    const test::NetNamespace net;
    if (!have_wire(net)) return state.SkipWithError("no network namespace with a pair of virtual interfaces");
    setpriority(PRIO_PROCESS, 0, -19);
    for (auto _ : state) {
        const std::string command = BENCH_FLOOR " tap " + std::to_string(FRAMES);
        const std::unique_ptr<FILE, int (*)(FILE*)> program(popen(command.c_str(), "re"), pclose);
        char ready[16];
        if (!program || !fgets(ready, sizeof ready, program.get())) throw std::runtime_error("no floor");
        const double sending_sec = send(state);
        Counts counts;
        double used_ms = 0;
        if (fscanf(program.get(), "%lu %lu %lf", &counts.received, &counts.dropped, &used_ms) != 3)
            throw std::runtime_error("the floor doesn't tell");
        report(state, counts, sending_sec, used_ms / 1e3);
    }
}

void cases(benchmark::internal::Benchmark* bench, int64_t workers) {
    bench->ArgNames({"flows", "rate", "burst", "workers"})
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    for (const int64_t flows : {1, 100, 10000, 100000})
        bench->Args({flows, 0, Sender::BATCH, workers});
    for (const int64_t flows : {100, 100000})
        bench->Args({flows, 700000, Sender::BATCH, workers})->Args({flows, 100000, Sender::BATCH, workers});
    bench->Args({100, 25000, 1, workers});
}

void alone(benchmark::internal::Benchmark* bench) {
    cases(bench, 1);
}
void by_two(benchmark::internal::Benchmark* bench) {
    cases(bench, 2);
}
BENCHMARK(capture)->Apply(alone)->Apply(by_two);
BENCHMARK(floor)->Apply(alone);
BENCHMARK(drain)
    ->ArgNames({"flows", "workers", "unknown"})
    ->ArgsProduct({{100, 15000}, {1, 2}, {0, 1}})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
