#include "infra/corvo_notif_hub.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

#include "infra/corvo_rpc_command.h"

namespace corvo::notif {
namespace {

const notif_t SOCKET_ADDED{"core", "notif.sock.add", SEV_INFO};
const notif_t SOCKET_DELETED{"core", "notif.sock.del", SEV_INFO};

/**
 * Created on first use, possibly before main, and never destroyed: static objects in other files may raise
 * events during their construction and destruction.
 */
Notif& hub() {
    static Notif* const g_notif = new Notif;
    return *g_notif;
}

/**
 * A delivery in progress, which keeps alive the subscribers that leave in the meantime. It isn't part of the
 * hub because libraries depend on the hub's size.
 */
struct Delivery {
    explicit Delivery(const Notif& notif) : hub(notif), outer(std::exchange(g_innermost, this)) {}
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery() { g_innermost = outer; }

    static Delivery* outermost_of(const Notif& hub) {
        Delivery* found = nullptr;
        for (Delivery* one = g_innermost; one; one = one->outer)
            if (&one->hub == &hub) found = one;
        return found;
    }

    static Delivery* g_innermost;

    const Notif& hub;
    Delivery* const outer;
    std::vector<std::unique_ptr<Subscriber>> leaving;
};

Delivery* Delivery::g_innermost = nullptr;

[[maybe_unused]] const Notif& g_built_before_main = hub();

/** Uses the words of the requests: "error" selects what is shown as "severe". */
Severity severity_of(const std::string& word) {
    if (word == "info") return SEV_INFO;
    return word == "warn" ? SEV_WARN : SEV_SEVERE;
}

std::string choice_or(const char* fallback, const Json::Value& params, const char* name,
                      std::initializer_list<const char*> choices, Json::Value& res) {
    return params[name].isNull() ? fallback : RpcParser().parse_choice(params, name, choices, res);
}

/** Appends the JSON of all `items` at this severity or above. */
template <typename Items>
void append_from(Severity severity, const Items& items, Json::Value& out) {
    out = Json::arrayValue;
    for (const auto& item : items)
        if (item.severity >= severity) item.to_json(out.append(Json::objectValue));
}

}  // namespace

std::atomic<unsigned> NotifGuard::g_count{0};

Notif::Notif() {
    subscribe(std::make_unique<LogSub>());
    subscribe(std::make_unique<AlertSub>());
}

void Notif::subscribe(std::unique_ptr<Subscriber>&& sub) {
    if (find(sub->uid()) != m_subs.end())
        throw Exception(sub->uid() + " is already registered for notifications");
    m_subs.push_back(std::move(sub));
}

void Notif::unsubscribe(const std::string& uid) {
    const auto it = find(uid);
    if (it == m_subs.end()) throw Exception(uid + " is not registered for notifications");
    if (Delivery* delivery = Delivery::outermost_of(*this))
        delivery->leaving.push_back(std::move(*it));
    else
        m_subs.erase(it);
}

// During a delivery, a subscriber may subscribe and unsubscribe others and itself.
void Notif::notify(const Event& event) {
    const Delivery delivery(*this);
    const size_t count = m_subs.size();
    for (size_t i = 0; i < count; ++i)
        if (m_subs[i]) m_subs[i]->offer(event);
    if (Delivery::outermost_of(*this) == &delivery) std::erase(m_subs, nullptr);
}

Notif::subscribers::iterator Notif::find(const std::string& uid) {
    return std::find_if(m_subs.begin(), m_subs.end(),
                        [&uid](const auto& sub) { return sub && sub->uid() == uid; });
}

void Notif::ops(const Json::Value& params, Json::Value& res) {
    const std::string cmd = RpcParser().parse_choice(params, "cmd", {"log", "alerts", "socket"}, res);
    if (cmd == "log")
        handle_rpc_log(params, res);
    else if (cmd == "alerts")
        handle_rpc_alerts(params, res);
    else
        handle_rpc_socket(params, res);
}

void Notif::handle_rpc_log(const Json::Value& params, Json::Value& res) {
    const std::string op = choice_or("show", params, "op", {"show", "clear"}, res);
    const Severity severity = severity_of(choice_or("info", params, "sev", {"info", "warn", "error"}, res));

    auto& log = static_cast<LogSub&>(**find(LogSub::UID));
    if (op == "show")
        append_from(severity, log.events(), res["notif"]["log"]);
    else
        log.clear();
}

void Notif::handle_rpc_alerts(const Json::Value& params, Json::Value& res) {
    const std::string op = choice_or("show", params, "op", {"show", "clear"}, res);
    const Severity severity = severity_of(choice_or("warn", params, "sev", {"warn", "error"}, res));

    auto& alerts = static_cast<AlertSub&>(**find(AlertSub::UID));
    if (op == "show")
        append_from(severity, alerts.alerts(), res["notif"]["alerts"]);
    else
        alerts.clear();
}

void Notif::handle_rpc_socket(const Json::Value& params, Json::Value& res) {
    RpcParser parser;
    const std::string op = parser.parse_choice(params, "op", {"add", "delete", "ls"}, res);
    if (op == "ls") {
        list_sockets(res["ls"]);
        return;
    }
    const std::string path = parser.parse_string(params, "socket", res);

    // The new socket is told of its own addition, the removed one isn't told of its removal.
    if (op == "add") {
        subscribe(std::make_unique<SocketSub>(path));
        corvo::notif::notify(SOCKET_ADDED, "socket: '%s'", path.c_str());
    } else {
        unsubscribe(SocketSub::uid_of(path));
        corvo::notif::notify(SOCKET_DELETED, "socket: '%s'", path.c_str());
    }
}

void Notif::list_sockets(Json::Value& out) const {
    out = Json::arrayValue;
    for (const auto& sub : m_subs) {
        const auto* socket = dynamic_cast<const SocketSub*>(sub.get());
        if (!socket) continue;
        Json::Value& entry = out.append(Json::objectValue);
        entry["filter"] = socket->filter().feature + "." + socket->filter().name;
        entry["hits"] = Json::UInt64{socket->hits()};
        entry["name"] = socket->path();
    }
}

void __notify(const std::string& feature, const std::string& name, Severity severity,
              const std::string& desc) {
    const NotifGuard guard;
    if (guard.first()) hub().notify(Event(feature, name, severity, desc));
}

void __ops(const Json::Value& params, Json::Value& res) {
    hub().ops(params, res);
}

}  // namespace corvo::notif
