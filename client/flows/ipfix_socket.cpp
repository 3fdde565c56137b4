#include "client/flows/ipfix_socket.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <vector>

#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/clock.h"

namespace brumectl::flows {

namespace {

struct ListEnd {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

/** Whether the descriptor becomes writable, or has failed, in time. */
bool wait_writable(int fd, uint64_t deadline_ms) {
    for (;;) {
        const uint64_t now = corvo::monotonic_ms();
        std::vector<pollfd> fds = {{fd, POLLOUT, 0}};
        if (interrupt::wait(fds, now < deadline_ms ? static_cast<int>(deadline_ms - now) : 0) > 0)
            return true;
        if (corvo::monotonic_ms() >= deadline_ms) return false;
    }
}

int error_of(int fd) {
    int error = 0;
    socklen_t size = sizeof(error);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

}  // namespace

Collector Collector::parse(const std::string& text, bool tcp) {
    Collector out{.tcp = tcp};
    const size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        out.host = text.substr(0, colon);
        out.port = text.substr(colon + 1);
    }
    const bool has_brackets = out.host.size() > 2 && out.host.front() == '[' && out.host.back() == ']';
    if (has_brackets) out.host = out.host.substr(1, out.host.size() - 2);
    uint16_t port = 0;
    const char* const end = out.port.data() + out.port.size();
    const auto [at, err] = std::from_chars(out.port.data(), end, port);
    const bool is_port = err == std::errc() && at == end && port > 0;
    if (out.host.empty() || !is_port || (!has_brackets && out.host.find(':') != std::string::npos))
        throw Usage("'--ipfix' must be HOST:PORT or [IPv6]:PORT, not '" + text + "'");
    return out;
}

std::string Collector::text() const {
    const bool is_v6 = host.find(':') != std::string::npos;
    return (is_v6 ? "[" + host + "]" : host) + ":" + port + " over " + (tcp ? "TCP" : "UDP");
}

IpfixSocket::IpfixSocket(const Collector& collector, int timeout_ms) : m_timeout_ms(timeout_ms) {
    addrinfo wish = {};
    wish.ai_socktype = collector.tcp ? SOCK_STREAM : SOCK_DGRAM;
    wish.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    if (const int err = getaddrinfo(collector.host.c_str(), collector.port.c_str(), &wish, &found); err != 0)
        throw Failure("no address of the collector " + collector.host + ": " + gai_strerror(err));
    const std::unique_ptr<addrinfo, ListEnd> list(found);
    for (const addrinfo* at = found; at != nullptr; at = at->ai_next)
        if (connect_to(*at)) return;
    throw Failure("no collector at " + collector.text() + ": " + strerror(errno));
}

/** On failure sets errno. */
bool IpfixSocket::connect_to(const addrinfo& address) {
    m_fd.reset(
        socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.ai_protocol));
    if (!m_fd) return false;
    if (connect(m_fd.get(), address.ai_addr, address.ai_addrlen) == 0) return true;
    if (errno != EINPROGRESS) return false;
    const bool is_done =
        wait_writable(m_fd.get(), corvo::monotonic_ms() + static_cast<uint64_t>(m_timeout_ms));
    errno = is_done ? error_of(m_fd.get()) : ETIMEDOUT;
    return errno == 0;
}

void IpfixSocket::send(const std::string& message) const {
    const uint64_t deadline_ms = corvo::monotonic_ms() + static_cast<uint64_t>(m_timeout_ms);
    for (size_t done = 0; done < message.size();) {
        const ssize_t sent = ::send(m_fd.get(), message.data() + done, message.size() - done, MSG_NOSIGNAL);
        if (sent >= 0) {
            done += static_cast<size_t>(sent);
        } else if (errno != EAGAIN && errno != EINTR) {
            throw Failure(std::string("the collector can't be reached: ") + strerror(errno));
        } else if (!wait_writable(m_fd.get(), deadline_ms)) {
            throw Failure("the collector takes nothing in");
        }
    }
}

bool IpfixSocket::is_gone() const {
    char byte = 0;
    for (;;) {
        const ssize_t got = recv(m_fd.get(), &byte, 1, MSG_DONTWAIT);
        if (got < 0) return errno != EAGAIN && errno != EINTR;
        if (got == 0) return true;
        // Collectors have nothing to say.
    }
}

}  // namespace brumectl::flows
