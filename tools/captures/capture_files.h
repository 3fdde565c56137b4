#pragma once
// Frames as capture files. Each frame comes a millisecond after the one before.

#include <string>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

// Each throws if the file can't be written.
void write_pcap(const std::string& path, const std::vector<Bytes>& frames);
/** As a machine of the other byte order would write it. */
void write_swapped_pcap(const std::string& path, const std::vector<Bytes>& frames);
void write_erf(const std::string& path, const std::vector<Bytes>& frames);

/** The time of the frame at an index, in these files: microseconds of the epoch. */
constexpr uint64_t frame_time_usec(size_t index) {
    return 1700000000ULL * 1000000 + index * 1000;
}

}  // namespace test
