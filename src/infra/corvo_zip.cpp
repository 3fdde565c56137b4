#include "infra/corvo_zip.h"

#include <lz4.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "infra/exports/corvo_malloc.h"

namespace {

constexpr char MAGIC[] = {'\xA2', '\x27', '\xA8', '\xAB'};
constexpr unsigned HEADER_SIZE = 8;
/** Limits memory use: a container from outside states its own plain length. */
constexpr uint32_t MAX_PLAIN_LEN = 64U << 20;

/** Compresses one block into a new buffer after `room` free bytes. Returns the block's size. */
int compress_behind(unsigned room, const char* in, unsigned len, char** out) {
    *out = nullptr;
    if (len > LZ4_MAX_INPUT_SIZE) return -EINVAL;
    const int bound = LZ4_compressBound(static_cast<int>(len));
    char* buffer = static_cast<char*>(cvmalloc(static_cast<unsigned>(bound) + room));
    if (!buffer) return -ENOMEM;
    const int size = LZ4_compress_default(in, buffer + room, static_cast<int>(len), bound);
    if (size < 1) {
        cvfree(buffer);
        return -EINVAL;
    }
    *out = buffer;
    return size;
}

}  // namespace

bool corvo_zip_is_zipped(const char* in, unsigned len) {
    return len >= HEADER_SIZE && std::memcmp(in, MAGIC, sizeof MAGIC) == 0;
}

int corvo_zip_zip(const char* in, unsigned len, char** out) {
    const int size = compress_behind(HEADER_SIZE, in, len, out);
    if (size < 0) return size;
    const uint32_t plain_len = len;
    std::memcpy(*out, MAGIC, sizeof MAGIC);
    std::memcpy(*out + sizeof MAGIC, &plain_len, sizeof plain_len);
    return size + static_cast<int>(HEADER_SIZE);
}

int corvo_zip_zip_raw(const char* in, unsigned len, char** out) {
    return compress_behind(0, in, len, out);
}

int corvo_zip_zip(const std::string& in, std::string& out, bool header) {
    out.clear();
    if (in.size() > LZ4_MAX_INPUT_SIZE) return -EINVAL;
    const auto len = static_cast<unsigned>(in.size());
    char* buffer = nullptr;
    const int size =
        header ? corvo_zip_zip(in.data(), len, &buffer) : corvo_zip_zip_raw(in.data(), len, &buffer);
    if (size > 0) out.assign(buffer, static_cast<size_t>(size));
    corvo_zip_destroy(buffer);
    return size;
}

int corvo_zip_unzip(const char* in, unsigned len, char** out) {
    *out = nullptr;
    if (!corvo_zip_is_zipped(in, len) || len > INT_MAX) return -EINVAL;
    uint32_t plain_len = 0;
    std::memcpy(&plain_len, in + sizeof MAGIC, sizeof plain_len);
    if (plain_len > MAX_PLAIN_LEN) return -EINVAL;

    // The extra byte avoids a zero-size allocation for an empty text.
    char* buffer = static_cast<char*>(cvmalloc(plain_len + 1));
    if (!buffer) return -EINVAL;
    const int size = LZ4_decompress_safe(in + HEADER_SIZE, buffer, static_cast<int>(len - HEADER_SIZE),
                                         static_cast<int>(plain_len));
    if (size != static_cast<int>(plain_len) || size == 0) {
        cvfree(buffer);
        return size == 0 && plain_len == 0 ? 0 : -EINVAL;
    }
    *out = buffer;
    return size;
}

void corvo_zip_destroy(char* buffer) {
    cvfree(buffer);
}

namespace corvo::rpc {

bool RpcZip::is_compressed(const std::string&) {
    return false;
}

int RpcZip::uncompress(const std::string&, std::string&) {
    return 0;
}

int RpcZip::compress(const std::string&, std::string&) {
    return 0;
}

}  // namespace corvo::rpc
