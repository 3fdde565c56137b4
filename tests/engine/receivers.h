#pragma once
// Peers that the exporter sends to, and what may run short meanwhile.

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "owned_fd.h"

namespace test {

/** A small HTTP server of one thread: what it is sent is collected while somebody calls `serve`. */
class HttpReceiver {
 public:
    HttpReceiver() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(m_listener.get(), generic, size) < 0 || listen(m_listener.get(), 5) < 0 ||
            getsockname(m_listener.get(), generic, &size) < 0)
            throw std::runtime_error("no port to listen on");
        m_port = ntohs(address.sin_port);
    }

    uint16_t port() const { return m_port; }
    /** Answers what has come, and waits a few milliseconds if nothing has. */
    void serve() {
        int connection = accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (connection >= 0) {
            m_connection = corvo::engine::OwnedFd(connection);
            m_input.clear();
        }
        pollfd waiting[2] = {{m_listener.get(), POLLIN, 0}, {m_connection.get(), POLLIN, 0}};
        poll(waiting, 2, 5);
        char buffer[4096];
        ssize_t count = m_connection ? read(m_connection.get(), buffer, sizeof buffer) : -1;
        if (count == 0) m_connection = corvo::engine::OwnedFd();
        if (count > 0) m_input.append(buffer, static_cast<size_t>(count));
        answer();
    }

    /** The part that has come of an unfinished request. */
    const std::string& input() const { return m_input; }

    int status = 200;  ///< 0: the connection is cut instead
    std::vector<std::string> heads;
    std::vector<std::string> bodies;

 private:
    void answer() {
        size_t end = m_input.find("\r\n\r\n");
        size_t field = m_input.find("Content-Length: ");
        if (end == std::string::npos || field > end) return;
        size_t length = std::strtoul(m_input.c_str() + field + 16, nullptr, 10);
        if (m_input.size() < end + 4 + length) return;
        heads.push_back(m_input.substr(0, end));
        bodies.push_back(m_input.substr(end + 4, length));
        m_input.erase(0, end + 4 + length);
        if (status == 0) {
            m_connection = corvo::engine::OwnedFd();
            return;
        }
        std::string head = "HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Length: 2\r\n\r\nok";
        if (write(m_connection.get(), head.data(), head.size()) < 0) throw std::runtime_error("no answer");
    }

    corvo::engine::OwnedFd m_listener;
    corvo::engine::OwnedFd m_connection;
    uint16_t m_port;
    std::string m_input;
};

/** While it lives, the process has only this much of a resource. */
class ShortOf {
 public:
    ShortOf(__rlimit_resource resource, rlim_t left) : m_resource(resource) {
        std::signal(SIGXFSZ, SIG_IGN);  // a write that is too long shall fail, not kill
        getrlimit(resource, &m_before);
        const rlimit little{left, m_before.rlim_max};
        setrlimit(resource, &little);
    }
    ShortOf(const ShortOf&) = delete;
    ShortOf& operator=(const ShortOf&) = delete;
    ~ShortOf() { setrlimit(m_resource, &m_before); }

 private:
    const __rlimit_resource m_resource;
    rlimit m_before{};
};

}  // namespace test
