#pragma once
// As much of HTTP/1.1 as a scraper needs: one request per connection, which is then closed. Clients that are
// slow, send too much or come in crowds can't hold up the others for long, or make this grow.

#include <poll.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "client/wire/address.h"
#include "utils/unique_fd.h"

namespace brumectl {

class HttpServer {
 public:
    static constexpr size_t MAX_CONNECTIONS = 32;
    static constexpr size_t MAX_REQUEST_BYTES = 8192;
    /** For the whole request to arrive, and again for its response to be read. */
    static constexpr int CLIENT_TIMEOUT_MS = 5000;

    struct Page {
        std::string type;
        std::string body;
    };
    /** Generates the page at `path` on request. */
    struct Route {
        std::string path;
        std::function<Page()> page;
    };

    /** Starts listening. Throws Failure. */
    HttpServer(const Address& address, std::vector<Route> routes);

    /** Never returns. Throws Interrupted. */
    [[noreturn]] void run();

 private:
    struct Connection {
        corvo::UniqueFd fd;
        uint64_t deadline_ms;
        std::string request = {};
        std::string answer = {};  ///< empty while the request is arriving
        size_t sent = 0;
        bool done = false;
    };

    void step();
    int time_left_ms() const;
    void accept_one();
    void read_request(Connection& connection) const;
    static void write_answer(Connection& connection);
    std::string answer_to(const std::string& request) const;

    corvo::UniqueFd m_listener;
    std::vector<Route> m_routes;
    std::list<Connection> m_connections;
    uint64_t m_accept_after_ms = 0;  ///< a failed accept isn't retried at once
};

}  // namespace brumectl
