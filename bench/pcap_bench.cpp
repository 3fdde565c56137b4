// The cost of a captured frame before an engine sees it: reading, parsing, and its two address texts.

#include <benchmark/benchmark.h>

#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/frame_builder.h"
#include "utils/pcap/pcap_reader.h"

namespace {

constexpr size_t FRAMES = 10000;
constexpr size_t PAYLOAD = 446;  // results in frames of 500 bytes

/** A capture of TCP frames, mostly IPv4, deleted when the program ends. */
const std::string& capture() {
    static const test::TempDir dir;
    static const std::string path = [] {
        const test::Path ipv4 = {"10.1.0.2", "192.168.100.200", 40000, 443};
        const test::Path ipv6 = {"fd00:1:2:3:4:5:6:7", "fd00:8::9", 40000, 443};
        std::vector<test::Bytes> frames;
        for (size_t i = 0; i < FRAMES; i++)
            frames.push_back(tcp_frame(i % 8 == 0 ? ipv6 : ipv4, {}, test::Bytes(PAYLOAD, 'x')));
        test::write_pcap(dir.file("bench.pcap"), frames);
        return dir.file("bench.pcap");
    }();
    return path;
}

/** Runs `work` on each frame; an iteration is one frame. */
template <typename Work>
void for_each_frame(benchmark::State& state, Work work) {
    auto reader = corvo::CCapReaderFactory::CreateReader(capture().c_str(), 0);
    corvo::CCapPkt pkt;
    for (auto _ : state) {
        if (!reader->ReadPacket(&pkt)) {
            reader->Rewind();
            reader->ReadPacket(&pkt);
        }
        work(pkt);
    }
    state.SetItemsProcessed(state.iterations());
}

void read(benchmark::State& state) {
    for_each_frame(state, [](corvo::CCapPkt& pkt) { benchmark::DoNotOptimize(pkt.GetPktBuffer()); });
}
BENCHMARK(read);

void read_parse(benchmark::State& state) {
    for_each_frame(state, [](corvo::CCapPkt& pkt) { benchmark::DoNotOptimize(pkt.parse()); });
}
BENCHMARK(read_parse);

void read_parse_addresses(benchmark::State& state) {
    for_each_frame(state, [](corvo::CCapPkt& pkt) {
        benchmark::DoNotOptimize(pkt.parse());
        benchmark::DoNotOptimize(pkt.GetSrcAddr());
        benchmark::DoNotOptimize(pkt.GetDstAddr());
    });
}
BENCHMARK(read_parse_addresses);

}  // namespace
