#include "monotonic.h"

#include <ctime>

namespace corvo::engine {

uint64_t monotonic_ms() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000 + static_cast<uint64_t>(t.tv_nsec) / 1000000;
}

}  // namespace corvo::engine
