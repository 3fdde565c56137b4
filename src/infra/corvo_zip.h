#pragma once
// LZ4 block compression in two forms. Raw: one block and nothing else, whose plain length the reader must
// know. Container: 4 bytes of magic, the plain length as 32 bits in host order, one block.
// All of these give a negative errno value on failure. Buffers that they hand out go back through
// `corvo_zip_destroy`; after a failure the pointer is null.

#include <string>

/** Starts like a container. */
bool corvo_zip_is_zipped(const char* in, unsigned len);
/** Container form; gives its total size. */
int corvo_zip_zip(const char* in, unsigned len, char** out);
/** Raw form; gives its size. */
int corvo_zip_zip_raw(const char* in, unsigned len, char** out);
/** Container form with `header`, else raw; gives the size. `out` is empty after a failure. */
int corvo_zip_zip(const std::string& in, std::string& out, bool header);
/**
 * Unpacks a container; gives the plain length. It is safe on any input and refuses plain lengths above
 * 64 MiB. An empty text gives 0 and no buffer.
 */
int corvo_zip_unzip(const char* in, unsigned len, char** out);
/** Null is fine. */
void corvo_zip_destroy(char* buffer);

namespace corvo::rpc {

/** Where transports would compress whole messages. None is compressed today: all of these do nothing. */
class RpcZip {
 public:
    static bool is_compressed(const std::string& msg);
    static int uncompress(const std::string& in, std::string& out);
    static int compress(const std::string& in, std::string& out);
};

}  // namespace corvo::rpc
