#include "server/rpc/corvo_rpc_transport_unix.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "infra/corvo_logger.h"
#include "utils/exception.h"

namespace corvo::rpc {

namespace {

const std::string COMP = "server";

/** A reply is one datagram, and the default send buffer would limit it to about 200 KB. */
constexpr int SEND_BUFFER_BYTES = 8 * 1024 * 1024;

[[noreturn]] void fail(const char* what) {
    throw Exception(std::string(what) + strerror(errno) + "]");
}

sockaddr_un address_of(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

/** Exceeding the system's limit needs a privilege; without it, the buffer is as large as allowed. */
void enlarge_send_buffer(int fd) {
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &SEND_BUFFER_BYTES, sizeof(SEND_BUFFER_BYTES)) != 0)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER_BYTES, sizeof(SEND_BUFFER_BYTES));
}

/** Empty if the sender has no name in the file system. A name that fills the field has no terminator. */
std::string path_of(const sockaddr_un& address, socklen_t len) {
    constexpr size_t offset = offsetof(sockaddr_un, sun_path);
    if (len <= offset) return {};
    return {address.sun_path, strnlen(address.sun_path, sizeof(address.sun_path))};
}

}  // namespace

RpcTransportUnix::RpcTransportUnix(const std::string& path) : m_shared(std::make_shared<Shared>(path)) {
    // Not zeroed: only what a read has filled is ever used.
    m_shared->buffer = std::make_unique_for_overwrite<char[]>(m_max_msg_size);
}

RpcTransportUnix::RpcTransportUnix(std::shared_ptr<Shared> shared, int fd) : m_shared(std::move(shared)) {
    m_fd = fd;
}

RpcTransport* RpcTransportUnix::clone() {
    return new RpcTransportUnix(m_shared, m_fd);
}

std::unique_ptr<RpcTransport> RpcTransportUnix::accept_conn() {
    return std::unique_ptr<RpcTransport>(clone());
}

void RpcTransportUnix::connect(bool force) {
    CORVO_LOG(DEBUG, COMP, "Creating UNIX socket: %s", m_shared->path.c_str());
    CORVO_LOG(DEBUG, COMP, "Max RPC msg size: %u [B]", m_max_msg_size);
    // The bound name, truncated if necessary, is also the one to remove and to open to all.
    sockaddr_un address = address_of(m_shared->path);
    if (force) remove_stale(address.sun_path);

    UniqueFd socket_fd(lift_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)));
    if (!socket_fd) fail("socket failed  [");
    int on = 1;
    if (setsockopt(socket_fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0)
        fail("setsockopt failed [");
    enlarge_send_buffer(socket_fd.get());
    // Bound with open permissions, so that usually nothing is left to change afterwards.
    const mode_t mask = umask(0);
    const int bound = bind(socket_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    umask(mask);
    if (bound != 0) fail("bind failed [");
    if (!open_to_all(address.sun_path)) {
        int err = errno;
        unlink(address.sun_path);
        errno = err;
        fail("chmod failed  [");
    }
    m_socket = std::move(socket_fd);
    m_fd = m_socket.get();
}

/**
 * By descriptor: whoever can write to the folder could replace the socket with a link. Sets errno on failure.
 */
bool RpcTransportUnix::open_to_all(const char* bound_path) {
    const UniqueFd bound(lift_fd(open(bound_path, O_PATH | O_NOFOLLOW | O_CLOEXEC)));
    struct stat info {};
    if (!bound || fstat(bound.get(), &info) != 0) return false;
    if (!S_ISSOCK(info.st_mode)) {
        errno = ENOTSOCK;
        return false;
    }
    m_bound = {info.st_dev, info.st_ino};
    const std::string by_descriptor = "/proc/self/fd/" + std::to_string(bound.get());
    return (info.st_mode & 0777U) == 0777U || chmod(by_descriptor.c_str(), 0777) == 0;
}

void RpcTransportUnix::remove_stale(const char* bound_path) const {
    if (access(bound_path, F_OK) != 0) return;
    CORVO_LOG(DEBUG, COMP, "File '%s' exists - trying to remove it by force", bound_path);
    // bind reports the reason for a failure.
    if (std::remove(bound_path) == 0) CORVO_LOG(DEBUG, COMP, "Removing pre-existing file");
}

void RpcTransportUnix::disconnect() {
    CORVO_LOG(DEBUG, COMP, "Destroying UNIX socket: %s", m_shared->path.c_str());
    m_fd = -1;
    if (!m_socket) return;  // never bound: whatever is at the path isn't ours
    m_socket.reset();
    const sockaddr_un address = address_of(m_shared->path);
    struct stat info {};
    // Another daemon may have taken over the path since; its socket isn't ours to remove.
    if (lstat(address.sun_path, &info) == 0 && m_bound == std::pair{info.st_dev, info.st_ino})
        unlink(address.sun_path);
}

std::unique_ptr<RpcRequest> RpcTransportUnix::recv_msg() {
    auto request = std::make_unique<RpcRequestUnix>(m_fd);
    char* buffer = m_shared->buffer.get();
    // With MSG_TRUNC, the result is the datagram's full length even if it was truncated.
    ssize_t len = recvfrom(m_fd, buffer, m_max_msg_size, MSG_TRUNC,
                           reinterpret_cast<sockaddr*>(&request->m_sender), &request->m_sender_len);
    int err = errno;
    // The length of a name that fills its field is reported one byte longer than an address can be.
    request->m_sender_len = std::min<socklen_t>(request->m_sender_len, sizeof(request->m_sender));
    CORVO_LOG(DEBUG, COMP, "Received new request from %s",
              len < 0 ? "" : path_of(request->m_sender, request->m_sender_len).c_str());
    if (len > static_cast<ssize_t>(m_max_msg_size)) {
        CORVO_LOG(ERROR, COMP, "Received too long RPC request, size: %zd", len);
        request->rc = RpcRequest::RC_TOO_LONG;
    } else if (len >= 0) {
        request->set_text(std::string(buffer, static_cast<size_t>(len)));
    } else if (err == EINTR) {
        CORVO_LOG(DEBUG, COMP, "interrupt detected");
        return nullptr;
    } else if (err == EAGAIN) {
        return nullptr;
    } else {
        CORVO_LOG(ERROR, COMP, "recvfrom failed: %s", strerror(err));
        request->rc = RpcRequest::RC_ERROR;
        request->fd = -1;  // no datagram, so no sender
    }
    return request;
}

RpcRequest::rc_e RpcRequestUnix::reply_int() {
    // The length as received, not the structure's size: in the abstract namespace it is part of the name.
    ssize_t len = sendto(fd, response.data(), response.size(), MSG_DONTWAIT,
                         reinterpret_cast<const sockaddr*>(&m_sender), m_sender_len);
    if (len > 0) return RC_OK;
    CORVO_LOG(ERROR, COMP, "sendto failed: %s", strerror(errno));
    return RC_ERROR;
}

}  // namespace corvo::rpc
