// Fills a folder with small captures: all sample flows as sample.pcap, sample-swapped.pcap and sample.erf,
// and each flow as a pcap file with its name.

#include <cstdio>
#include <exception>
#include <filesystem>

#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace {

void make_captures(const std::string& folder) {
    std::filesystem::create_directories(folder);
    std::vector<test::Bytes> frames = test::sample_frames();
    test::write_pcap(folder + "/sample.pcap", frames);
    test::write_swapped_pcap(folder + "/sample-swapped.pcap", frames);
    test::write_erf(folder + "/sample.erf", frames);
    for (const test::SampleFlow& flow : test::sample_flows())
        test::write_pcap(folder + "/" + flow.name + ".pcap", flow.frames);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    try {
        make_captures(argv[1]);
    } catch (const std::exception& e) {
        fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
    return 0;
}
