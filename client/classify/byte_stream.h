#pragma once
// The bytes of a capture from a file, a pipe or standard input, decompressed if they are in gzip format, as a
// stream for libpcap. Ctrl-C ends waiting for a pipe.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "utils/unique_file.h"

namespace brumectl {

/** For the stream of a capture, which otherwise reads a few KiB at a time. It must outlive the stream. */
std::unique_ptr<char[]> give_buffer(FILE* file);

struct ByteStream {
    std::unique_ptr<char[]> buffer = {};  ///< of `file`, which it must outlive
    corvo::UniqueFile file = {};
    std::string path = {};  ///< for opening it again from the start; empty if that isn't possible
    uint64_t size = 0;      ///< as stored, compressed or not; 0 if unknown

    /**
     * `path` "-" is standard input. `idle` is called about every 20 seconds while a pipe is silent.
     * Throws Failure, Interrupted.
     */
    static ByteStream open(const std::string& path, const std::function<void()>& idle);
};

}  // namespace brumectl
