#include "support/client.h"

#include <json/reader.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace test {
namespace {

using clock = std::chrono::steady_clock;

sockaddr_un unix_address(const std::string& path) {
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
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
    if (bind(m_fd.get(), reinterpret_cast<sockaddr*>(&own), sizeof(own)) != 0)
        throw std::runtime_error("client socket: " + std::string(strerror(errno)));
}

bool UnixClient::send(const std::string& text) const {
    sockaddr_un server = unix_address(m_server);
    return sendto(m_fd.get(), text.data(), text.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&server),
                  sizeof(server)) == static_cast<ssize_t>(text.size());
}

bool UnixClient::receive(std::string& text, int timeout_ms) const {
    pollfd waiting{m_fd.get(), POLLIN, 0};
    if (poll(&waiting, 1, timeout_ms) <= 0) return false;
    ssize_t size = recv(m_fd.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (size < 0) return false;
    text.resize(static_cast<size_t>(size));
    return recv(m_fd.get(), text.data(), text.size(), 0) == size;
}

size_t open_descriptors() {
    using entries = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(entries("/proc/self/fd"), entries()));
}

Json::Value parse(const std::string& text) {
    Json::Value value;
    Json::Reader reader;
    if (!reader.parse(text, value)) throw std::runtime_error("not JSON: " + text.substr(0, 200));
    return value;
}

}  // namespace test
