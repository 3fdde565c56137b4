#pragma once
// LZ4 block compression in two forms. Raw: a single block, whose plain length the reader must know.
// Container: 4 bytes of magic, the plain length as 32 bits in host order, then one block. All functions
// return a negative errno value on failure. Buffers that they return must be released with
// `corvo_zip_destroy`; after a failure the pointer is null.

#include <string>

/** Whether the data starts like a container. */
bool corvo_zip_is_zipped(const char* in, unsigned len);
/** Container form. Returns its total size. */
int corvo_zip_zip(const char* in, unsigned len, char** out);
/** Raw form. Returns its size. */
int corvo_zip_zip_raw(const char* in, unsigned len, char** out);
/** Container form if `header`, else raw. Returns the size. `out` is empty after a failure. */
int corvo_zip_zip(const std::string& in, std::string& out, bool header);
/**
 * Unpacks a container and returns the plain length. Safe on any input; rejects plain lengths above 64 MiB.
 * For an empty text it returns 0 and no buffer.
 */
int corvo_zip_unzip(const char* in, unsigned len, char** out);
/** Accepts null. */
void corvo_zip_destroy(char* buffer);

namespace corvo::rpc {

/**
 * The hook for compressing whole messages in transports. No message is compressed today, so these do nothing.
 */
class RpcZip {
 public:
    static bool is_compressed(const std::string& msg);
    static int uncompress(const std::string& in, std::string& out);
    static int compress(const std::string& in, std::string& out);
};

}  // namespace corvo::rpc
