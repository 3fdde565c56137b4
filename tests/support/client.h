#pragma once
// Clients of the daemon's two transports, and waiting without sleeping blindly.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "support/temp_dir.h"

namespace test {

/** Asks `done` again and again until it holds or the time is over; gives its last answer. */
bool eventually(const std::function<bool()>& done, int timeout_ms = 10000);

/** A client with a bound address of its own, speaking datagrams to one server. */
class UnixClient {
 public:
    explicit UnixClient(std::string server_path);
    UnixClient(const UnixClient&) = delete;
    UnixClient& operator=(const UnixClient&) = delete;
    ~UnixClient();

    /** False when nobody listens there. */
    bool send(const std::string& text) const;
    /** The next datagram; false after the time-out. */
    bool receive(std::string& text, int timeout_ms = 10000) const;
    const std::string& path() const { return m_path; }

 private:
    TempDir m_dir;
    std::string m_path;
    std::string m_server;
    int m_fd;
};

/** One connection. */
class TcpClient {
 public:
    /** @throws std::runtime_error when it can't connect */
    explicit TcpClient(uint16_t port);
    TcpClient(const TcpClient&) = delete;
    TcpClient& operator=(const TcpClient&) = delete;
    ~TcpClient();

    bool send(const std::string& bytes) const;
    void reset_on_close() const;
    int fd() const { return m_fd; }

 private:
    int m_fd;
};

/** A TCP port on the loopback interface that is free at this moment. */
uint16_t free_port();

/** How many this process has. */
size_t open_descriptors();
/** Throws std::runtime_error. */
Json::Value parse(const std::string& text);

}  // namespace test
