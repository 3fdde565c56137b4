// The least program that does with an interface's frames what our engine does: a ring shared with the kernel,
// a flow table, nDPI. `live_floor IFNAME FRAMES` says "ready", ends when so many frames have come or been
// dropped, or none for two seconds, and prints how many of each and the CPU time in ms from then on.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>

#include "bench/floors/flow_floor.h"

namespace {

/** As many as a daemon has that is started with --activate. */
constexpr size_t MAX_FLOWS = 16384;
constexpr unsigned BLOCK = 32 << 10, BLOCKS = 128, RETIRE_MS = 10, QUIET_MS = 2000;

int open_ring(const char* ifname, uint8_t*& memory) {
    const int fd = socket(AF_PACKET, SOCK_RAW, 0);
    const int version = TPACKET_V3;
    setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version);
    tpacket_req3 ring{BLOCK, BLOCKS, 2048, BLOCK / 2048 * BLOCKS, RETIRE_MS, 0, 0};
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
    if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &ring, sizeof ring) != 0 ||
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        exit(1);
    memory = static_cast<uint8_t*>(
        mmap(nullptr, size_t{BLOCK} * BLOCKS, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    return fd;
}

unsigned long drops_of(int fd) {
    tpacket_stats_v3 stats{};
    socklen_t size = sizeof stats;
    getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &stats, &size);
    return stats.tp_drops;
}

uint64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    bench::Classifier classifier(MAX_FLOWS);
    uint8_t* memory = nullptr;
    const int fd = open_ring(argv[1], memory);
    const unsigned long wanted = strtoul(argv[2], nullptr, 10);
    unsigned long received = 0, dropped = 0;
    puts("ready");
    fflush(stdout);
    const double before = bench::cpu_ms();
    for (unsigned current = 0; received + dropped < wanted; current = (current + 1) % BLOCKS) {
        auto* block = reinterpret_cast<tpacket_block_desc*>(memory + size_t{current} * BLOCK);
        tpacket_hdr_v1& head = block->hdr.bh1;
        pollfd waiting{fd, POLLIN, 0};
        while (!(__atomic_load_n(&head.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER))
            if (poll(&waiting, 1, QUIET_MS) == 0) goto quiet;
        {
            const uint64_t ms = now_ms();
            const auto* frame = reinterpret_cast<uint8_t*>(block) + head.offset_to_first_pkt;
            for (unsigned i = 0; i < head.num_pkts; ++i) {
                const auto* at = reinterpret_cast<const tpacket3_hdr*>(frame);
                bench::Headers headers;
                if (bench::parse(frame + at->tp_mac, at->tp_snaplen, headers))
                    classifier.classify(frame + at->tp_mac, at->tp_snaplen, headers, ms);
                frame += at->tp_next_offset;
            }
            received += head.num_pkts;
        }
        __atomic_store_n(&head.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    }
quiet:
    dropped += drops_of(fd);
    printf("%lu %lu %.3f\n", received, dropped, bench::cpu_ms() - before);
}
