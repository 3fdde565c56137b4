#pragma once
// The daemon as its clients see it: one request, one reply, over either transport.

#include <json/value.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/wire/address.h"
#include "client/wire/own_socket.h"
#include "utils/unique_fd.h"

namespace brumectl {

class Daemon {
 public:
    /** The daemon's limit for one datagram. Longer requests are refused before they are sent. */
    static constexpr size_t MAX_DATAGRAM_BYTES = 60000;
    /** Limit of a reply, both on the wire and uncompressed. */
    static constexpr size_t MAX_REPLY_BYTES = 64UL * 1024 * 1024;

    /** Connects with the first request, to the first address where somebody listens. */
    Daemon(std::vector<Address> addresses, int timeout_ms)
        : m_addresses(std::move(addresses)), m_timeout_ms(timeout_ms) {}

    /**
     * Returns the result of one request. `params` is an object, or null for none. Connecting and the request
     * together take at most the timeout.
     * Throws ErrorReply, NoDaemon, BrokenOff, TimedOut, Failure for an unreadable reply, Interrupted.
     */
    Json::Value call(const std::string& method, const Json::Value& params = Json::Value());
    /**
     * The reply's text as received, whatever it says, with a compressed result replaced by its plain text.
     */
    std::string call_text(const std::string& method, const Json::Value& params = Json::Value());
    /** Where the daemon was found. Connects first if necessary. */
    const Address& address();
    int timeout_ms() const { return m_timeout_ms; }
    void set_timeout_ms(int timeout_ms) { m_timeout_ms = timeout_ms; }

 private:
    /** Returns the reply, and sets `text` to its text as received. */
    Json::Value exchange(const std::string& method, const Json::Value& params, std::string& text);
    std::string request_text(const std::string& method, const Json::Value& params);
    uint64_t deadline_ms() const;
    void find(uint64_t deadline);
    Json::Value ask_unix(const std::string& request, uint64_t deadline, std::string& text);
    /** Returns false if the time is up. Throws NoDaemon if the daemon has ended in the meantime. */
    bool await_reply(uint64_t deadline_ms) const;
    void check_peer() const;
    std::string ask_tcp(const std::string& request, uint64_t deadline);

    std::vector<Address> m_addresses;  ///< a single one after `find`
    int m_timeout_ms;
    bool m_found = false;
    struct stat m_socket_file = {};           ///< Unix: the file that was connected to
    std::unique_ptr<PrivateFolder> m_folder;  ///< Unix: holds our own socket if it needs a path
    corvo::UniqueFd m_fd;                     ///< Unix: kept open; TCP: opened by `find` for the next request
    uint64_t m_id = 0;
};

}  // namespace brumectl
