// More flows than the engine's table can hold: CPU time per frame, and the process's memory before, at its
// peak and a minute after the last flow has gone. Two frames per flow, each a DNS query.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "bench/flow_frames.h"
#include "data_path.h"

namespace {

namespace api = corvo::api;

constexpr uint32_t FRAMES_PER_FLOW = 2;
/** About as many small frames as the daemon puts in one batch. */
constexpr uint32_t BATCH = 128;
/** Idle UDP flows are forgotten after a minute. */
constexpr uint64_t AGING_MS = 60000;

uint64_t g_now_ms = 0;
uint64_t fake_clock() {
    return g_now_ms;
}

/** A line of /proc/self/status, in MiB. */
double status_mib(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":")) return std::stod(line.substr(name.size() + 1)) / 1024;
    return 0;
}

void forget_peak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

/** Pushes the frames of one flow after another, in batches. */
class Pusher {
 public:
    explicit Pusher(corvo::engine::DataPath& path) : m_path(path), m_pkts(BATCH) {
        for (uint32_t i = 0; i < BATCH; i++) {
            m_pkts[i].data = m_frames[i].data();
            m_pkts[i].len = static_cast<uint16_t>(m_frames[i].size());
        }
    }
    void push(uint32_t first_flow) {
        for (uint32_t i = 0; i < BATCH; i++)
            m_frames[i].set_flow(first_flow + i / FRAMES_PER_FLOW);
        m_path.push(m_pkts, false);
    }

 private:
    corvo::engine::DataPath& m_path;
    std::array<bench::FlowFrame, BATCH> m_frames;
    std::vector<api::pkt_> m_pkts;
};

/**
 * With `aging`, time passes, so that the table is half full of live flows. Without it, all flows come at once
 * and those that don't fit are refused.
 */
void flows(benchmark::State& state, bool aging) {
    const auto max_flows = static_cast<uint32_t>(state.range(0));
    const auto flows = static_cast<uint32_t>(state.range(1));
    constexpr uint32_t FLOWS_PER_BATCH = BATCH / FRAMES_PER_FLOW;
    malloc_trim(0);
    corvo::engine::Classifiers classifiers;
    corvo::engine::DataPath path(classifiers, max_flows, corvo::engine::DataPath::LIVE, fake_clock);
    Pusher pusher(path);
    forget_peak();
    const double before = status_mib("VmRSS");
    for (auto _ : state) {
        double now_ms = static_cast<double>(g_now_ms);
        uint64_t tick_ms = g_now_ms;
        for (uint32_t flow = 0; flow < flows; flow += FLOWS_PER_BATCH) {
            pusher.push(flow);
            if (!aging) continue;
            now_ms += static_cast<double>(AGING_MS) * FLOWS_PER_BATCH / (max_flows / 2.0);
            g_now_ms = static_cast<uint64_t>(now_ms);
            if (g_now_ms >= tick_ms) tick_ms = g_now_ms + static_cast<uint64_t>(path.tick());
        }
    }
    const uint64_t refused = path.errors(api::PKT_MAX_FLOWS_REACHED);
    for (int second = 0; second < 150; second++) {  // until all are forgotten, and one more minute
        g_now_ms += 1000;
        path.tick();
    }
    using benchmark::Counter;
    const double frames = static_cast<double>(flows) * FRAMES_PER_FLOW;
    state.counters["per_frame"] =
        Counter(frames, Counter::kIsIterationInvariantRate | Counter::kInvert, Counter::kIs1000);
    state.counters["refused"] =
        static_cast<double>(refused) / frames / static_cast<double>(state.iterations());
    state.counters["mib_before"] = before;
    state.counters["mib_peak"] = status_mib("VmHWM");
    state.counters["mib_resting"] = status_mib("VmRSS");
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"table", "flows"})->ArgsProduct({{1024, 16384, 65536}, {10000, 100000, 1000000}});
    bench->Iterations(1)->Unit(benchmark::kMillisecond);
}
BENCHMARK_CAPTURE(flows, at_once, false)->Apply(sizes);
BENCHMARK_CAPTURE(flows, aging, true)->Apply(sizes);

}  // namespace
