#include "client/live/http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

constexpr uint64_t ACCEPT_PAUSE_MS = 100;

std::string response(const char* status, const HttpServer::Page& page, bool with_body) {
    return std::string("HTTP/1.1 ") + status + "\r\nContent-Type: " + page.type +
           "\r\nContent-Length: " + std::to_string(page.body.size()) + "\r\nConnection: close\r\n\r\n" +
           (with_body ? page.body : std::string());
}

std::string refusal(const char* status, bool with_body = true) {
    return response(status, {"text/plain; charset=utf-8", std::string(status) + "\n"}, with_body);
}

bool is_complete(const std::string& request) {
    return request.find("\r\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
}

}  // namespace

HttpServer::HttpServer(const Address& address, std::vector<Route> routes)
    : m_listener(socket(address.ip.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      m_routes(std::move(routes)) {
    int on = 1;
    setsockopt(m_listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (bind(m_listener.get(), address.ip_address(), address.ip_size()) != 0 ||
        listen(m_listener.get(), SOMAXCONN) != 0)
        throw Failure("can't listen at " + address.text + ": " + strerror(errno));
}

void HttpServer::run() {
    for (;;)
        step();
}

void HttpServer::step() {
    bool accepting = m_connections.size() < MAX_CONNECTIONS && corvo::monotonic_ms() >= m_accept_after_ms;
    std::vector<pollfd> fds{{accepting ? m_listener.get() : -1, POLLIN, 0}};
    for (const Connection& connection : m_connections)
        fds.push_back(
            {connection.fd.get(), static_cast<short>(connection.answer.empty() ? POLLIN : POLLOUT), 0});
    interrupt::wait(fds, time_left_ms());
    // Clients that arrive while a page is generated have waited for us, not we for them.
    const uint64_t now = corvo::monotonic_ms();
    size_t at = 1;
    for (Connection& connection : m_connections) {
        if (fds[at++].revents != 0) {
            if (connection.answer.empty()) read_request(connection);
            if (!connection.answer.empty()) write_answer(connection);
        }
        if (now >= connection.deadline_ms) connection.done = true;
    }
    m_connections.remove_if([](const Connection& connection) { return connection.done; });
    if (fds[0].revents != 0) accept_one();
}

int HttpServer::time_left_ms() const {
    uint64_t now = corvo::monotonic_ms();
    uint64_t first = now + CLIENT_TIMEOUT_MS;
    for (const Connection& connection : m_connections)
        first = std::min(first, connection.deadline_ms);
    if (m_accept_after_ms > now) first = std::min(first, m_accept_after_ms);
    return first > now ? static_cast<int>(first - now) : 0;
}

void HttpServer::accept_one() {
    corvo::UniqueFd fd(accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd)
        m_connections.push_back({std::move(fd), corvo::monotonic_ms() + CLIENT_TIMEOUT_MS});
    else if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
        m_accept_after_ms = corvo::monotonic_ms() + ACCEPT_PAUSE_MS;
}

void HttpServer::read_request(Connection& connection) const {
    char piece[2048];
    ssize_t size = recv(connection.fd.get(), piece, sizeof(piece), 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) {
        connection.done = true;
        return;
    }
    connection.request.append(piece, static_cast<size_t>(size));
    if (is_complete(connection.request))
        connection.answer = answer_to(connection.request);
    else if (connection.request.size() > MAX_REQUEST_BYTES)
        connection.answer = refusal("431 Request Header Fields Too Large");
    // The page itself may have taken long, which doesn't count as the client's time.
    if (!connection.answer.empty()) connection.deadline_ms = corvo::monotonic_ms() + CLIENT_TIMEOUT_MS;
}

void HttpServer::write_answer(Connection& connection) {
    const std::string& answer = connection.answer;
    ssize_t size = send(connection.fd.get(), answer.data() + connection.sent, answer.size() - connection.sent,
                        MSG_NOSIGNAL);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    connection.sent += size > 0 ? static_cast<size_t>(size) : 0;
    connection.done = size < 0 || connection.sent == answer.size();
}

std::string HttpServer::answer_to(const std::string& request) const {
    std::string line = request.substr(0, request.find_first_of("\r\n"));
    size_t path_at = line.find(' ');
    size_t version_at = line.rfind(' ');
    if (path_at == std::string::npos || version_at <= path_at ||
        line.compare(version_at + 1, 7, "HTTP/1.") != 0)
        return refusal("400 Bad Request");
    std::string method = line.substr(0, path_at);
    if (method != "GET" && method != "HEAD") return refusal("405 Method Not Allowed");
    std::string path = line.substr(path_at + 1, version_at - path_at - 1);
    path.resize(std::min(path.size(), path.find('?')));
    for (const Route& route : m_routes)
        if (path == route.path) return response("200 OK", route.page(), method == "GET");
    return refusal("404 Not Found", method == "GET");
}

}  // namespace brumectl
