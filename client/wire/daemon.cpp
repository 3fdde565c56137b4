#include "client/wire/daemon.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/wire/own_socket.h"
#include "client/wire/reply.h"
#include "infra/json/corvo_json.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

using corvo::UniqueFd;

constexpr uint64_t PEER_CHECK_MS = 500;

int remaining_ms(uint64_t deadline_ms) {
    uint64_t now = corvo::monotonic_ms();
    return now >= deadline_ms ? 0 : static_cast<int>(deadline_ms - now);
}

[[noreturn]] void fail_unreachable(const Address& address, int err) {
    throw NoDaemon("no daemon at " + address.text + ": " + strerror(err), err == EACCES);
}

/** Waits for `events` on one descriptor. False if the time is up. */
bool await(int fd, short events, uint64_t deadline_ms) {
    for (;;) {
        std::vector<pollfd> fds{{fd, events, 0}};
        int left = remaining_ms(deadline_ms);
        if (interrupt::wait(fds, left) > 0) return true;
        if (left == 0) return false;
    }
}

int connect_path(int fd, const Address& address) {
    const sockaddr_un peer = address.unix_address();
    return connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer));
}

/** Only connects; the daemon can't reply to this socket yet. */
UniqueFd connect_unix(const Address& address, int& err) {
    UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd && connect_path(fd.get(), address) == 0) return fd;
    err = errno;
    return UniqueFd();
}

UniqueFd connect_tcp(const Address& address, uint64_t deadline_ms, int& err) {
    UniqueFd fd(socket(address.ip.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        err = errno;
        return fd;
    }
    if (connect(fd.get(), address.ip_address(), address.ip_size()) == 0) return fd;
    err = errno;
    if (err != EINPROGRESS) return UniqueFd();
    err = ETIMEDOUT;
    if (!await(fd.get(), POLLOUT, deadline_ms)) return UniqueFd();
    socklen_t len = sizeof(err);
    getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &err, &len);
    return err == 0 ? std::move(fd) : UniqueFd();
}

}  // namespace

uint64_t Daemon::deadline_ms() const {
    return corvo::monotonic_ms() + static_cast<uint64_t>(m_timeout_ms);
}

void Daemon::find(uint64_t deadline) {
    if (m_found) return;
    std::string tried;
    bool denied = false;
    for (const Address& address : m_addresses) {
        int err = 0;
        m_fd = address.tcp ? connect_tcp(address, deadline, err) : connect_unix(address, err);
        if (m_fd && !address.tcp && bind_own_name(m_fd.get(), address, m_folder) != 0) {
            err = errno;
            m_fd.reset();
        }
        if (m_fd) {
            if (!address.tcp) stat(address.path.c_str(), &m_socket_file);
            Address found = address;
            m_addresses = {found};
            m_found = true;
            return;
        }
        denied = denied || err == EACCES;
        tried += (tried.empty() ? "" : "; ") + address.text + ": " + strerror(err);
    }
    throw NoDaemon("no daemon at " + tried, denied);
}

const Address& Daemon::address() {
    find(deadline_ms());
    return m_addresses.front();
}

std::string Daemon::request_text(const std::string& method, const Json::Value& params) {
    if (!params.isNull() && !params.isObject()) throw Usage("params of '" + method + "' must be an object");
    Json::Value request;
    request["jsonrpc"] = "2.0";
    request["id"] = Json::UInt64(++m_id);
    request["method"] = method;
    request["accept"].append("lz4");
    if (!params.isNull()) request["params"] = params;
    return corvo::json::write(request);
}

Json::Value Daemon::exchange(const std::string& method, const Json::Value& params, std::string& text) {
    std::string request = request_text(method, params);
    const uint64_t deadline = deadline_ms();
    find(deadline);
    if (!m_addresses.front().tcp) return ask_unix(request, deadline, text);
    text = ask_tcp(request, deadline);
    Json::Value reply = reply::parse(text);
    if (!reply::answers(reply, m_id)) throw Failure("the reply is to another request");
    return reply;
}

Json::Value Daemon::call(const std::string& method, const Json::Value& params) {
    std::string text;
    return reply::result_of(exchange(method, params, text), MAX_REPLY_BYTES);
}

std::string Daemon::call_text(const std::string& method, const Json::Value& params) {
    std::string text;
    return reply::unpack_text(exchange(method, params, text), text, MAX_REPLY_BYTES);
}

// There is no notification when a daemon ends with our request in its queue, so its socket has to be checked.
void Daemon::check_peer() const {
    const Address& peer = m_addresses.front();
    struct stat now = {};
    int err = stat(peer.path.c_str(), &now) == 0 ? 0 : errno;
    if (err == 0 && (now.st_dev != m_socket_file.st_dev || now.st_ino != m_socket_file.st_ino))
        err = ECONNRESET;
    if (err == 0) connect_unix(peer, err);
    if (err == ENOENT || err == ECONNREFUSED || err == ECONNRESET) fail_unreachable(peer, err);
}

bool Daemon::await_reply(uint64_t deadline_ms) const {
    for (;;) {
        uint64_t until = std::min(deadline_ms, corvo::monotonic_ms() + PEER_CHECK_MS);
        if (await(m_fd.get(), POLLIN, until)) return true;
        if (until == deadline_ms) return false;
        check_peer();
    }
}

Json::Value Daemon::ask_unix(const std::string& request, uint64_t deadline, std::string& text) {
    const Address& peer = m_addresses.front();
    if (request.size() > MAX_DATAGRAM_BYTES)
        throw Failure("the request has " + std::to_string(request.size()) +
                      " bytes; a Unix socket takes 60000, use the daemon's TCP address for more");
    // A full queue empties when the daemon reads; the queue of a daemon that is gone never does.
    while (send(m_fd.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        if (errno == ECONNREFUSED || errno == ENOTCONN || errno == ECONNRESET) fail_unreachable(peer, errno);
        if (errno != EAGAIN && errno != EINTR)
            throw Failure(std::string("sending failed: ") + strerror(errno));
        if (!await(m_fd.get(), POLLOUT, deadline)) throw TimedOut(peer.text + " takes no requests");
    }
    while (await_reply(deadline)) {
        ssize_t size = recv(m_fd.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (size < 0) fail_unreachable(peer, errno);
        if (static_cast<size_t>(size) > MAX_REPLY_BYTES) throw Failure("the reply is too large");
        text.assign(static_cast<size_t>(size), '\0');
        recv(m_fd.get(), text.data(), text.size(), 0);
        Json::Value reply = reply::parse(text);
        if (reply::answers(reply, m_id))
            return reply;  // otherwise it belongs to an earlier request that timed out
    }
    throw TimedOut("no answer from " + peer.text + " within " + std::to_string(m_timeout_ms) + " ms");
}

std::string Daemon::ask_tcp(const std::string& request, uint64_t deadline) {
    const Address& peer = m_addresses.front();
    UniqueFd fd = std::move(m_fd);
    int err = 0;
    if (!fd) fd = connect_tcp(peer, deadline, err);
    if (!fd) fail_unreachable(peer, err);
    std::string line = request + "\n";
    size_t sent = 0;
    while (sent < line.size() && await(fd.get(), POLLOUT, deadline)) {
        ssize_t done = send(fd.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (done < 0 && errno != EAGAIN && errno != EINTR) fail_unreachable(peer, errno);
        if (done > 0) sent += static_cast<size_t>(done);
    }
    std::string text;
    char piece[65536];
    while (await(fd.get(), POLLIN, deadline)) {
        ssize_t size = recv(fd.get(), piece, sizeof(piece), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (size < 0) fail_unreachable(peer, errno);
        if (size == 0) {
            if (Json::Value whole; !text.empty() && corvo::json::parse(text, whole)) return text;
            throw BrokenOff(peer.text + " closed the connection before it answered");
        }
        text.append(piece, static_cast<size_t>(size));
        if (text.back() == '\n') return text;
        if (text.size() > MAX_REPLY_BYTES) throw Failure("the reply is too large");
    }
    throw TimedOut("no answer from " + peer.text + " within " + std::to_string(m_timeout_ms) + " ms");
}

}  // namespace brumectl
