#include "utils/base64.h"

#include <cstddef>
#include <cstring>

extern constexpr char basis_64[65] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace {

constexpr unsigned char NO_VALUE = 64;

constexpr std::array<unsigned char, 256> invert_alphabet() {
    std::array<unsigned char, 256> values{};
    values.fill(NO_VALUE);
    for (unsigned char i = 0; i < 64; ++i)
        values[static_cast<unsigned char>(basis_64[i])] = i;
    return values;
}

}  // namespace

extern constexpr std::array<unsigned char, 256> pr2six = invert_alphabet();

namespace {

unsigned value_of(char c) {
    return pr2six[static_cast<unsigned char>(c)];
}

/** The two characters for each 12-bit value. An encoder with half as many lookups is twice as fast. */
struct Pairs {
    char of[4096][2];
    constexpr Pairs() : of{} {
        for (unsigned i = 0; i < 4096; ++i) {
            of[i][0] = basis_64[i >> 6];
            of[i][1] = basis_64[i & 0x3F];
        }
    }
};

constexpr Pairs PAIRS;

size_t encoded_size(size_t len) {
    return (len + 2) / 3 * 4;
}

/** Number of alphabet characters before the first other one; the NUL at the end of a text counts as other. */
size_t count_valid(const char* in) {
    size_t count = 0;
    while (value_of(in[count]) != NO_VALUE)
        ++count;
    return count;
}

/** A single character in the last group doesn't make up a whole byte. */
size_t decoded_size(size_t chars) {
    return chars / 4 * 3 + (chars % 4 > 1 ? chars % 4 - 1 : 0);
}

void encode(char* out, const char* text, size_t len) {
    const auto* in = reinterpret_cast<const unsigned char*>(text);
    for (; len >= 3; len -= 3, in += 3, out += 4) {
        std::memcpy(out, PAIRS.of[in[0] << 4 | in[1] >> 4], 2);
        std::memcpy(out + 2, PAIRS.of[(in[1] & 0x0F) << 8 | in[2]], 2);
    }
    if (len == 0) return;
    const unsigned second = len == 2 ? in[1] : 0;
    *out++ = basis_64[in[0] >> 2];
    *out++ = basis_64[(in[0] & 0x03) << 4 | second >> 4];
    *out++ = len == 2 ? basis_64[(second & 0x0F) << 2] : '=';
    *out++ = '=';
}

void decode(char* out, const char* in, size_t chars) {
    for (; chars >= 4; chars -= 4, in += 4) {
        *out++ = static_cast<char>(value_of(in[0]) << 2 | value_of(in[1]) >> 4);
        *out++ = static_cast<char>(value_of(in[1]) << 4 | value_of(in[2]) >> 2);
        *out++ = static_cast<char>(value_of(in[2]) << 6 | value_of(in[3]));
    }
    if (chars > 1) *out++ = static_cast<char>(value_of(in[0]) << 2 | value_of(in[1]) >> 4);
    if (chars > 2) *out++ = static_cast<char>(value_of(in[1]) << 4 | value_of(in[2]) >> 2);
}

}  // namespace

int b64_elen(int len) {
    return (len + 2) / 3 * 4 + 1;
}

int b64_dlen(const char* in) {
    return static_cast<int>((count_valid(in) + 3) / 4 * 3 + 1);
}

int b64_encode(char* out, const char* in, int len) {
    const size_t size = encoded_size(static_cast<size_t>(len));
    encode(out, in, static_cast<size_t>(len));
    out[size] = '\0';
    return static_cast<int>(size + 1);
}

std::string b64_encode(const char* in, unsigned len) {
    std::string out(encoded_size(len), '\0');
    encode(out.data(), in, len);
    return out;
}

std::string b64_encode(const std::string& in) {
    return b64_encode(in.data(), static_cast<unsigned>(in.size()));
}

int b64_decode(char* out, const char* in) {
    const size_t chars = count_valid(in);
    const size_t size = decoded_size(chars);
    decode(out, in, chars);
    out[size] = '\0';
    return static_cast<int>(size);
}

std::string b64_decode(const std::string& in) {
    const size_t chars = count_valid(in.c_str());
    std::string out(decoded_size(chars), '\0');
    decode(out.data(), in.c_str(), chars);
    return out;
}
