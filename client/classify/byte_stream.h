#pragma once
// The bytes of a capture: of a file, a pipe or standard input, unpacked where they are packed by gzip, as a
// stream for libpcap. Waiting for a pipe ends with Ctrl-C.

#include <cstdint>
#include <functional>
#include <string>

#include "utils/unique_file.h"

namespace brumectl {

struct ByteStream {
    corvo::UniqueFile file = {};
    std::string path = {};  ///< under which it can be opened once more, from its begin; empty: never
    uint64_t size = 0;      ///< as it lies there, packed or not; 0 if that isn't known

    /**
     * `path` "-" is standard input. `idle` is called about every 20 seconds while a pipe says nothing.
     * @throws Failure, Interrupted
     */
    static ByteStream open(const std::string& path, const std::function<void()>& idle);
};

}  // namespace brumectl
