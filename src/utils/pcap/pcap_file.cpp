#include "utils/pcap/pcap_file.h"

#include <fcntl.h>

#include "utils/unique_fd.h"

namespace corvo {

namespace {

FilePtr open_stream(const char* path, int flags, const char* mode) {
    UniqueFd fd(open(path, flags | O_CLOEXEC | O_NOCTTY, 0666));
    if (!fd) return nullptr;
    FilePtr file(fdopen(fd.get(), mode));
    if (file) fd.release();
    return file;
}

}  // namespace

FilePtr open_to_read(const char* path) {
    return open_stream(path, O_RDONLY | O_NONBLOCK, "rb");
}

FilePtr open_to_write(const char* path) {
    return open_stream(path, O_WRONLY | O_CREAT | O_TRUNC, "wb");
}

int64_t measure(FILE* file) {
    if (fseeko(file, 0, SEEK_END) != 0) return -1;
    int64_t size = ftello(file);
    rewind(file);
    return size;
}

bool skip(FILE* file, int64_t bytes) {
    return bytes == 0 || fseeko(file, bytes, SEEK_CUR) == 0;
}

}  // namespace corvo
