#pragma once
// Writes frames as capture files, each a millisecond after the one before.

#include <string>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

// These throw if the file can't be written.
void write_pcap(const std::string& path, const std::vector<Bytes>& frames);
/** Writes the file as a machine with the opposite byte order would. */
void write_swapped_pcap(const std::string& path, const std::vector<Bytes>& frames);
void write_erf(const std::string& path, const std::vector<Bytes>& frames);

/** The time that these files give to the frame at `index`, in microseconds since the Epoch. */
constexpr uint64_t frame_time_usec(size_t index) {
    return 1700000000ULL * 1000000 + index * 1000;
}

}  // namespace test
