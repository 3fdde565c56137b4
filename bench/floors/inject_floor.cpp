// The least program that does with a capture file what the daemon does when it is pushed through an engine.
//   inject_floor batch|flow|batch+ndpi FILE
// batch: each frame is copied, and its addresses are written; batches of 10 kB become a result per frame, and
// those a count per protocol as JSON. flow: each frame goes to nDPI by its flow, without a copy. batch+ndpi:
// both. Prints the frames, and the CPU time in ms without what nDPI takes to start.
#include <arpa/inet.h>
#include <json/json.h>
#include <pcap/pcap.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench/floors/flow_floor.h"

namespace {

using bench::be16;
using bench::Classifier;
using bench::Headers;

constexpr size_t BATCH_BYTES = 10000;

std::string address(const u_char* frame, const Headers& at, size_t end) {
    const u_char* ip = frame + at.l3 + (at.version == 4 ? 12 + 4 * end : 8 + 16 * end);
    char text[INET6_ADDRSTRLEN], all[INET6_ADDRSTRLEN + 8];
    inet_ntop(at.version == 4 ? AF_INET : AF_INET6, ip, text, sizeof text);
    const bool ports = at.protocol == IPPROTO_TCP || at.protocol == IPPROTO_UDP;
    snprintf(all, sizeof all, "%s:%u", text, ports ? be16(frame + at.l4 + 2 * end) : 0);
    return all;
}

struct Packet {
    std::vector<u_char> frame;
    Headers at;
    uint64_t ms = 0;
    std::string source, destination, protocol;
};

/** Moves what has been recognised to `results`. */
void classify(std::vector<Packet>& batch, Classifier* classifier, std::vector<Packet>& results) {
    for (auto& packet : batch) {
        const auto size = static_cast<unsigned>(packet.frame.size());
        ndpi_protocol is{};
        is.app_protocol = 1;
        if (classifier != nullptr) is = classifier->classify(packet.frame.data(), size, packet.at, packet.ms);
        if (is.app_protocol == NDPI_PROTOCOL_UNKNOWN) continue;
        packet.protocol = classifier != nullptr ? classifier->name(is) : "bench";
        packet.frame = {};
        results.push_back(std::move(packet));
    }
    batch.clear();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::string what = argv[1];
    std::unique_ptr<Classifier> classifier;
    if (what != "batch") classifier = std::make_unique<Classifier>();
    const double before = bench::cpu_ms();
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* file = pcap_open_offline(argv[2], error);
    if (file == nullptr) {
        fprintf(stderr, "inject_floor: %s\n", error);
        return 1;
    }
    std::vector<Packet> batch, results;
    size_t frames = 0, bytes = 0;
    pcap_pkthdr* header = nullptr;
    const u_char* frame = nullptr;
    while (pcap_next_ex(file, &header, &frame) == 1) {
        ++frames;
        Headers at;
        if (!bench::parse(frame, header->caplen, at)) continue;
        const uint64_t ms = static_cast<uint64_t>(header->ts.tv_sec) * 1000 +
                            static_cast<uint64_t>(header->ts.tv_usec) / 1000;
        if (what == "flow") {
            classifier->classify(frame, header->caplen, at, ms);
            continue;
        }
        batch.push_back(
            {{frame, frame + header->caplen}, at, ms, address(frame, at, 0), address(frame, at, 1), {}});
        bytes += header->caplen;
        if (bytes < BATCH_BYTES) continue;
        classify(batch, classifier.get(), results);
        bytes = 0;
    }
    classify(batch, classifier.get(), results);
    Json::Value counts;
    for (const auto& packet : results)
        counts[packet.protocol] = counts[packet.protocol].asInt() + 1;
    const std::string answer = Json::FastWriter().write(counts);
    printf("%zu %.3f %zu\n", frames, bench::cpu_ms() - before, answer.size());
}
