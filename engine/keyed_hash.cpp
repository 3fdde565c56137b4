#include "keyed_hash.h"

#include <sys/random.h>

#include <random>

namespace corvo::engine {

KeyedHash::KeyedHash() {
    if (getrandom(m_seed, sizeof m_seed, GRND_NONBLOCK) == sizeof m_seed) return;
    std::random_device random;  // doesn't wait for entropy early in the boot, when waiting isn't allowed
    for (uint64_t& seed : m_seed)
        seed = static_cast<uint64_t>(random()) << 32 | random();
}

}  // namespace corvo::engine
