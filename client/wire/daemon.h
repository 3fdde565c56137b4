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
    /** What the daemon takes as one datagram. Longer requests are refused here, before they are sent. */
    static constexpr size_t MAX_DATAGRAM_BYTES = 60000;
    /** Bound of a reply, on the wire and unpacked. */
    static constexpr size_t MAX_REPLY_BYTES = 64UL * 1024 * 1024;

    /** Connects at the first request, to the first of the addresses where somebody listens. */
    Daemon(std::vector<Address> addresses, int timeout_ms)
        : m_addresses(std::move(addresses)), m_timeout_ms(timeout_ms) {}

    /**
     * The result of one request. `params` is an object, or null for none. Connecting and asking together
     * take no longer than the time-out.
     * @throws ErrorReply, NoDaemon, BrokenOff, TimedOut, Failure for a reply that can't be read, Interrupted
     */
    Json::Value call(const std::string& method, const Json::Value& params = Json::Value());
    /** The reply's text as it came, whatever it says: the result of a large one is unpacked into its place.
     */
    std::string call_text(const std::string& method, const Json::Value& params = Json::Value());
    /** Where the daemon was found. Connects if that hasn't happened. */
    const Address& address();
    int timeout_ms() const { return m_timeout_ms; }
    void set_timeout_ms(int timeout_ms) { m_timeout_ms = timeout_ms; }

 private:
    /** The reply, and its text as it came. */
    Json::Value exchange(const std::string& method, const Json::Value& params, std::string& text);
    std::string request_text(const std::string& method, const Json::Value& params);
    uint64_t deadline_ms() const;
    void find(uint64_t deadline);
    Json::Value ask_unix(const std::string& request, uint64_t deadline, std::string& text);
    /** False: the time is over. @throws NoDaemon when the daemon ended meanwhile */
    bool await_reply(uint64_t deadline_ms) const;
    void check_peer() const;
    std::string ask_tcp(const std::string& request, uint64_t deadline);

    std::vector<Address> m_addresses;  ///< after `find`, one
    int m_timeout_ms;
    bool m_found = false;
    struct stat m_socket_file = {};           ///< Unix: the file that was connected to
    std::unique_ptr<PrivateFolder> m_folder;  ///< Unix: of our own socket, where it needs a path
    corvo::UniqueFd m_fd;  ///< Unix: kept; TCP: what `find` has opened, for the next request
    uint64_t m_id = 0;
};

}  // namespace brumectl
