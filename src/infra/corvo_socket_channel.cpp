#include "infra/corvo_socket_channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "infra/corvo_logger.h"
#include "infra/exports/corvo_shims.h"
#include "utils/clock.h"
#include "utils/exception.h"
#include "utils/unique_fd.h"

namespace corvo {
namespace {

const std::string COMP = "socket";

/** One end of a pair, which owns its descriptor. */
class OwningChannel : public SocketChannel {
 public:
    OwningChannel(const std::string& name, UniqueFd fd)
        : SocketChannel(name, fd.get(), handler_cb(), 0), m_owned(std::move(fd)) {}

 private:
    UniqueFd m_owned;
};

}  // namespace

SocketChannel::SocketChannel(const std::string& name, int fd, handler_cb handler, unsigned int timeout_ms)
    : m_handler(std::move(handler)), m_timeout_ms(timeout_ms), m_name(name) {
    m_fd = fd;
}

long SocketChannel::_send(int fd, const std::string& msg) const {
    return cv_send(fd, msg.data(), static_cast<unsigned int>(msg.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
}

long SocketChannel::_recv(int fd, std::string& msg) const {
    // Peeks at the full length of the next datagram without consuming it.
    char first = 0;
    const long size = cv_recv(fd, &first, 1, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (size <= 0) return size;

    std::string buffer(static_cast<size_t>(size), '\0');
    const long received = cv_recv(fd, buffer.data(), static_cast<unsigned int>(size), MSG_DONTWAIT);
    if (received > 0) {
        buffer.resize(static_cast<size_t>(received));
        msg.swap(buffer);
    }
    return received;
}

state_e SocketChannel::_poll(int fd, int timeout_ms) const {
    const int64_t end_ms = static_cast<int64_t>(monotonic_ms()) + timeout_ms;
    int remaining_ms = timeout_ms;
    while (true) {
        pollfd waiting = {fd, POLLIN, 0};
        const int ready = cv_poll(&waiting, 1, remaining_ms);
        if (ready > 0) return CHANNEL_OK;
        if (ready == 0) return CHANNEL_TIMEOUT;
        if (errno != EINTR) {
            CORVO_LOG(ERROR, COMP, "Unknown error from poll: %s", strerror(errno));
            return CHANNEL_ERROR;
        }
        remaining_ms = static_cast<int>(std::max<int64_t>(end_ms - static_cast<int64_t>(monotonic_ms()), 0));
        CORVO_LOG(DEBUG, COMP, "Polling socket was interrupted by a signal (restarting with [%d ms])",
                  remaining_ms);
    }
}

state_e SocketChannel::push(const std::string& msg) const {
    const long sent = _send(m_fd, msg);
    if (sent >= 0 && static_cast<size_t>(sent) == msg.size()) return CHANNEL_OK;
    switch (errno) {
        case EPIPE:
        case ECONNRESET:
        case ECONNREFUSED:  // Linux reports this when a datagram peer is gone
            return CHANNEL_BROKEN;
        case EAGAIN:
            return CHANNEL_SEND_AGAIN;
        default:
            CORVO_LOG(ERROR, COMP, "Unknown error code from send: %s", strerror(errno));
            return CHANNEL_ERROR;
    }
}

state_e SocketChannel::pop(std::string& msg, int timeout_ms) const {
    if (timeout_ms > 0) {
        const state_e ready = _poll(m_fd, timeout_ms);
        if (ready != CHANNEL_OK) return ready;
    }
    while (true) {
        const long received = _recv(m_fd, msg);
        if (received > 0) return CHANNEL_OK;
        if (received == 0) return CHANNEL_CLOSED;
        switch (errno) {
            case EAGAIN:
                return CHANNEL_RECV_AGAIN;
            case ECONNRESET:
                return CHANNEL_BROKEN;
            case EINTR:
                CORVO_LOG(WARN, COMP, "Polling socket was interrupted by a signal");
                break;
            default:
                CORVO_LOG(ERROR, COMP, "Unknown error from recv: %s", strerror(errno));
                return CHANNEL_ERROR;
        }
    }
}

EventRC SocketChannel::do_work(const EventExpireReason& reason) {
    if (reason == EVENT_EXPIRE_READY) return serve_waiting();
    std::string out;
    const handler_cb handler = m_handler;  // copied because it may set another one
    handler(CHANNEL_TIMEOUT, "", out);
    return resched(m_timeout_ms);
}

EventRC SocketChannel::serve_waiting() {
    std::string out;
    state_e rc = CHANNEL_OK;
    while (rc == CHANNEL_OK) {
        std::string in;
        rc = pop(in, 0);
        if (rc == CHANNEL_RECV_AGAIN) break;
        if (const handler_cb handler = m_handler) handler(rc, in, out);
        if (rc == CHANNEL_CLOSED || rc == CHANNEL_BROKEN) return done();
        if (!out.empty()) {
            push(out);
            out.clear();
        }
    }
    return resched(m_timeout_ms);
}

SocketChannelPair::SocketChannelPair(const std::string& name) {
    int fds[2] = {-1, -1};
    int err = 0;
    if (cv_socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, fds) != 0) err = errno;
    UniqueFd first(lift_fd(fds[0]));
    if (err == 0 && !first) err = errno;
    UniqueFd second(lift_fd(fds[1]));
    if (err == 0 && !second) err = errno;
    if (err != 0) throw Exception("Failed to create channel pair", err);
    m_first = std::make_shared<OwningChannel>(name, std::move(first));
    m_second = std::make_shared<OwningChannel>(name, std::move(second));
}

}  // namespace corvo
