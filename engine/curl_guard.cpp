#include "curl_guard.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdlib>
#include <memory>

#include "owned_fd.h"

namespace corvo::engine {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

template <typename Visit>
void for_each_descriptor(Visit visit) {
    std::unique_ptr<DIR, DirCloser> dir(opendir("/proc/self/fd"));
    if (!dir) return;
    while (const dirent* entry = readdir(dir.get())) {
        int fd = std::atoi(entry->d_name);
        if (fd > STDERR_FILENO && fd != dirfd(dir.get())) visit(fd);
    }
}

}  // namespace

CurlGuard::CurlGuard() {
    for_each_descriptor([&](int fd) { m_before.insert(fd); });
}

CurlGuard::~CurlGuard() {
    for_each_descriptor([&](int fd) {
        if (!m_before.count(fd)) fcntl(fd, F_SETFD, FD_CLOEXEC);
    });
}

void keep_curl_library() {
    dlopen("libcurl.so.4", RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

int open_curl_socket(void*, curlsocktype, curl_sockaddr* address) {
    OwnedFd fd(socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol));
    return fd ? fd.release() : CURL_SOCKET_BAD;
}

}  // namespace corvo::engine
