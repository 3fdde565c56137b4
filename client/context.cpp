#include "client/context.h"

#include <csignal>
#include <cstdio>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/wire/engine_methods.h"
#include "client/wire/reply.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

/** The longest wait after asking for help or pressing Tab. */
constexpr int PATIENCE_MS = 300;

}  // namespace

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

const MethodTable* Context::engine_methods(bool quietly) {
    if (m_engine_methods) return m_engine_methods.get();
    if (!quietly) return (m_engine_methods = brumectl::engine_methods(daemon())).get();
    const interrupt::Deferred deferred;
    try {
        const std::unique_ptr<Daemon> daemon = new_daemon();
        daemon->set_timeout_ms(PATIENCE_MS);
        m_engine_methods = brumectl::engine_methods(*daemon);
    } catch (const std::exception&) {
        return nullptr;
    }
    return m_engine_methods.get();
}

void Context::print_json(const Json::Value& value) const {
    m_out.print(m_out.interactive() ? harmless(corvo::json::write_styled(value), true)
                                    : corvo::json::write_line(value));
}

void Context::print_result(const std::string& method, const Json::Value& params) {
    print_json(daemon().call(method, params));
    m_out.flush();
}

void Context::print_reply(const Json::Value& reply) const {
    print_json(reply);
    m_out.flush();
    reply::throw_error(reply);
}

void Context::ask_and_print_reply(const std::string& method, const Json::Value& params) {
    if (m_options.result) return print_result(method, params);
    const std::string text = daemon().call_text(method, params);
    const Json::Value reply = reply::parse(text);
    if (m_out.interactive()) return print_reply(reply);
    m_out.print(text.empty() || text.back() != '\n' ? text + '\n' : text);
    m_out.flush();
    reply::throw_error(reply);
}

void Context::ask_and_print_reply(const std::string& method, const Json::Value& params,
                                  const Json::Value& id) {
    if (m_options.result) return print_result(method, params);
    Json::Value reply = reply::parse(daemon().call_text(method, params));
    reply["id"] = id;
    print_reply(reply);
}

void Context::complain(const std::string& text) const {
    std::string line = "brumectl: " + harmless(text, true);
    while (line.back() == '\n')
        line.pop_back();
    try {
        m_out.flush();
    } catch (const Failure&) {
        // The next print reports this; the present text is more important.
    } catch (const Interrupted& e) {
        if (e.signum() != SIGPIPE) throw;  // a reader who has seen enough of stdout hasn't seen this
    }
    // There is nobody left to tell if this fails.
    fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace brumectl
