#include "client/context.h"

#include <csignal>
#include <cstdio>

#include "client/failure.h"
#include "client/interrupt.h"
#include "infra/corvo_json.h"

namespace brumectl {

Daemon& Context::daemon() {
    if (!m_daemon) m_daemon = new_daemon();
    return *m_daemon;
}

std::vector<Address> Context::addresses() const {
    return m_options.address.empty() ? default_addresses() : std::vector{Address::parse(m_options.address)};
}

std::unique_ptr<Daemon> Context::new_daemon() const {
    return std::make_unique<Daemon>(addresses(), timeout_ms());
}

void Context::print_json(const Json::Value& value) const {
    m_out.print(m_out.interactive() ? harmless(corvo::json::write_styled(value), true)
                                    : corvo::json::write_line(value));
}

void Context::complain(const std::string& text) const {
    std::string line = "brumectl: " + harmless(text, true);
    while (line.back() == '\n')
        line.pop_back();
    try {
        m_out.flush();
    } catch (const Failure&) {
        // Told by whoever prints next; this text matters more.
    } catch (const Interrupted& e) {
        if (e.signum() != SIGPIPE) throw;  // a reader who has seen enough hasn't seen this
    }
    // Nobody is left to tell if this fails.
    fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace brumectl
