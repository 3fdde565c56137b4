#pragma once
// An input of a fuzz target, consumed from its front. Reading past the end yields zeros and empty texts, so
// that every input is valid.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

class Input {
 public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}

    bool empty() const { return m_left == 0; }
    uint8_t u8() {
        if (empty()) return 0;
        --m_left;
        return *m_data++;
    }
    /** Big-endian. */
    uint16_t u16() {
        const uint8_t high = u8();
        return static_cast<uint16_t>(high << 8 | u8());
    }
    /** At most `count` bytes. */
    std::string text(size_t count) {
        count = std::min(count, m_left);
        std::string out(reinterpret_cast<const char*>(m_data), count);
        m_data += count;
        m_left -= count;
        return out;
    }
    std::string rest() { return text(m_left); }
    /** Up to the next byte with this value, which is dropped. */
    std::string until(uint8_t end) {
        std::string out = text(static_cast<size_t>(std::find(m_data, m_data + m_left, end) - m_data));
        u8();
        return out;
    }

 private:
    const uint8_t* m_data;
    size_t m_left;
};

}  // namespace fuzz
