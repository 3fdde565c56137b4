#pragma once
// A hash of words that can't be predicted without its seed: SipHash-1-3. Whoever sends the traffic must not
// be able to choose which flows share a slot of the table.

#include <bit>
#include <cstdint>
#include <span>

namespace corvo::engine {

class KeyedHash {
 public:
    /** Seeds it from the system's random number source. */
    KeyedHash();

    /** Lengths aren't hashed: no input may be another one with words appended. */
    uint64_t operator()(std::span<const uint64_t> words) const {
        State s{m_seed[0] ^ 0x736f6d6570736575u, m_seed[1] ^ 0x646f72616e646f6du,
                m_seed[0] ^ 0x6c7967656e657261u, m_seed[1] ^ 0x7465646279746573u};
        for (uint64_t word : words)
            s.absorb(word);
        s.v2 ^= 0xff;
        for (int i = 0; i < 3; i++)
            s.round();
        return s.v0 ^ s.v1 ^ s.v2 ^ s.v3;
    }

 private:
    struct State {
        uint64_t v0, v1, v2, v3;

        void absorb(uint64_t word) {
            v3 ^= word;
            round();
            v0 ^= word;
        }
        void round() {
            v0 += v1, v2 += v3;
            v1 = std::rotl(v1, 13) ^ v0, v3 = std::rotl(v3, 16) ^ v2;
            v0 = std::rotl(v0, 32);
            v2 += v1, v0 += v3;
            v1 = std::rotl(v1, 17) ^ v2, v3 = std::rotl(v3, 21) ^ v0;
            v2 = std::rotl(v2, 32);
        }
    };

    uint64_t m_seed[2];
};

}  // namespace corvo::engine
