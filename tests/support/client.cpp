#include "support/client.h"

#include <arpa/inet.h>
#include <json/reader.h>
#include <json/writer.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

namespace test {
namespace {

using clock = std::chrono::steady_clock;

sockaddr_un unix_address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

bool readable(int fd, int timeout_ms) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeout_ms) > 0;
}

}  // namespace

bool eventually(const std::function<bool()>& done, int timeout_ms) {
    const auto end = clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!done()) {
        if (clock::now() > end) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

UnixClient::UnixClient(std::string server_path)
    : m_path(m_dir.file("c")),
      m_server(std::move(server_path)),
      m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un own = unix_address(m_path);
    if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&own), sizeof(own)) != 0)
        throw std::runtime_error("client socket: " + std::string(strerror(errno)));
}

UnixClient::~UnixClient() {
    close(m_fd);
}

bool UnixClient::send(const std::string& text) const {
    sockaddr_un server = unix_address(m_server);
    return sendto(m_fd, text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&server),
                  sizeof(server)) == static_cast<ssize_t>(text.size());
}

bool UnixClient::receive(std::string& text, int timeout_ms) const {
    if (!readable(m_fd, timeout_ms)) return false;
    ssize_t size = recv(m_fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (size < 0) return false;
    text.resize(static_cast<size_t>(size));
    return recv(m_fd, text.data(), text.size(), 0) == size;
}

std::string UnixClient::ask(const std::string& text, int timeout_ms) const {
    std::string reply;
    if (!send(text)) throw std::runtime_error("nobody listens at " + m_server);
    if (!receive(reply, timeout_ms)) throw std::runtime_error("no answer to " + text.substr(0, 200));
    return reply;
}

TcpClient::TcpClient(uint16_t port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(port);
    if (connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        int err = errno;
        close(m_fd);
        throw std::runtime_error("connect: " + std::string(strerror(err)));
    }
}

TcpClient::~TcpClient() {
    close(m_fd);
}

bool TcpClient::send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        ssize_t n = ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

std::string TcpClient::receive_all(int timeout_ms) const {
    std::string all;
    std::vector<char> buffer(1 << 16);
    while (readable(m_fd, timeout_ms)) {
        ssize_t n = recv(m_fd, buffer.data(), buffer.size(), 0);
        if (n <= 0) break;
        all.append(buffer.data(), static_cast<size_t>(n));
    }
    return all;
}

void TcpClient::reset_on_close() const {
    linger abort_it{1, 0};
    setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &abort_it, sizeof(abort_it));
}

uint16_t free_port() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    bool ok = bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
              getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(fd);
    if (!ok) throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

std::string request_text(const std::string& method, const Json::Value& params, const Json::Value& id) {
    Json::Value request;
    request["jsonrpc"] = "2.0";
    request["method"] = method;
    request["id"] = id;
    if (!params.isNull()) request["params"] = params;
    return Json::FastWriter().write(request);
}

Json::Value parse(const std::string& text) {
    Json::Value value;
    Json::Reader reader;
    if (!reader.parse(text, value)) throw std::runtime_error("not JSON: " + text.substr(0, 200));
    return value;
}

}  // namespace test
