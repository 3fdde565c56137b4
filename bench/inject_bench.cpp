// The cost of one injected frame from the file to its protocol's counter, including reading and parsing: CPU
// time per frame, with an engine that does nothing and with the one we ship, if it has been built.

#include <benchmark/benchmark.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "infra/corvo_scheduler.h"
#include "server/corvo_server_loader_us.h"
#include "support/temp_dir.h"
#include "utils/exception.h"
#include "utils/pcap/pcap_writer.h"

namespace {

using corvo::server::Engine;

constexpr size_t SIZES[] = {66, 1514, 66, 250, 1514, 90, 600, 1514};

std::string tcp_frame(size_t size, int flow) {
    std::string frame(size, '\0');
    const auto put16 = [&](size_t at, size_t value) {
        frame[at] = static_cast<char>(value >> 8);
        frame[at + 1] = static_cast<char>(value);
    };
    put16(12, 0x0800);
    frame[14] = 0x45;
    put16(16, size - 14);
    frame[23] = 6;
    put16(26, 0x0a00);
    put16(28, flow);
    put16(30, 0x0a01);
    put16(34, 1024 + flow);
    put16(36, 443);
    put16(46, 0x5010);
    return frame;
}

/** A capture that is deleted when the program ends. */
class Capture {
 public:
    explicit Capture(int64_t frames) {
        const auto writer = corvo::CCapWriterFactory::CreateWriter(corvo::CAPTURE_LIBPCAP, path().c_str());
        for (int64_t i = 0; i < frames; ++i) {
            const std::string frame = tcp_frame(SIZES[i % std::size(SIZES)], static_cast<int>(i / 20 % 5000));
            corvo::CCapPkt pkt(reinterpret_cast<const unsigned char*>(frame.data()), frame.size());
            writer->write_packet(&pkt);
        }
    }
    std::string path() const { return m_dir.file("bench.pcap"); }

 private:
    test::TempDir m_dir;
};

void push_pcap(benchmark::State& state, const char* library, bool extended) {
    if (!std::filesystem::exists(std::string(library) + "/libcvcp_u.so")) {
        state.SkipWithError("this engine has not been built");
        return;
    }
    static std::map<int64_t, Capture> captures;  // by number of frames
    const Capture& capture = captures.try_emplace(state.range(0), state.range(0)).first->second;
    corvo::Scheduler sched;
    corvo::server::EngineUS engine(sched);
    try {
        corvo::api::InitConfig init;
        init.cp_addr = "corvo-cp";
        engine.load_engine(library, init);
        corvo::api::ActivateConfig activate;
        activate.max_flows = 16384;
        engine.activate(activate);
        for (auto _ : state) {
            std::unordered_map<std::string, int> counts;
            engine.push_pcap("", capture.path(), true, 0, extended,
                             [&](Engine::PktInfo&& info) { ++counts[info.protocol]; });
            benchmark::DoNotOptimize(counts);
        }
    } catch (const corvo::Exception& e) {
        state.SkipWithError(e.what());
    }
    engine.cleanup();
    using benchmark::Counter;
    state.counters["per_frame"] =
        Counter(static_cast<double>(state.range(0)), Counter::kIsIterationInvariantRate | Counter::kInvert,
                Counter::kIs1000);
}

void sizes(benchmark::internal::Benchmark* bench) {
    bench->ArgName("frames")->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
}
BENCHMARK_CAPTURE(push_pcap, inert, BENCH_INERT_ENGINE, false)->Apply(sizes);
BENCHMARK_CAPTURE(push_pcap, inert_extended, BENCH_INERT_ENGINE, true)->Apply(sizes);
BENCHMARK_CAPTURE(push_pcap, shipped, BENCH_SHIPPED_ENGINE, false)->Apply(sizes);
BENCHMARK_CAPTURE(push_pcap, shipped_extended, BENCH_SHIPPED_ENGINE, true)->Apply(sizes);

}  // namespace
