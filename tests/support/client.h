#pragma once
// A client of the daemon's datagrams, and waiting for conditions.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "support/temp_dir.h"
#include "utils/unique_fd.h"

namespace test {

/** Asks `done` again and again until it holds or the time is over. Returns its last answer. */
bool eventually(const std::function<bool()>& done, int timeout_ms = 10000);

/** A client with an address of its own that exchanges datagrams with one server. */
class UnixClient {
 public:
    explicit UnixClient(std::string server_path);
    /** False if nobody listens there. */
    bool send(const std::string& text) const;
    /** The next datagram; false if none comes in time. */
    bool receive(std::string& text, int timeout_ms = 10000) const;
    const std::string& path() const { return m_path; }

 private:
    TempDir m_dir;
    std::string m_path;
    std::string m_server;
    corvo::UniqueFd m_fd;
};

/** How many descriptors this process has. */
size_t open_descriptors();
/** Throws std::runtime_error if it isn't JSON. */
Json::Value parse(const std::string& text);

}  // namespace test
