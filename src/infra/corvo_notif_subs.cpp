#include "infra/corvo_notif_subs.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "infra/json/corvo_json.h"
#include "utils/unique_fd.h"

namespace corvo::notif {

Subscriber::Subscriber(const Filter& filter) : m_filter(filter) {}

Subscriber::~Subscriber() = default;

void Subscriber::offer(const Event& event) {
    if (!m_filter.matches(event)) return;
    ++m_hits;
    // A failed delivery only loses this event for this subscriber, and has already been logged.
    execute_(event);
}

int LogSub::execute_(const Event& event) {
    if (m_events.size() == MAX_EVENTS) m_events.pop_front();
    m_events.push_back(event);
    return 0;
}

void Alert::to_json(Json::Value& out) const {
    out["count"] = Json::UInt64{count};
    out["feature"] = id.feature;
    out["last_ts"] = static_cast<Json::UInt64>(last_ts);
    out["name"] = id.name;
    out["sev"] = severity_to_str(severity);
}

int AlertSub::execute_(const Event& event) {
    const auto alert = m_alerts.insert({{event.feature, event.name}, event.severity}).first;
    ++alert->count;
    alert->last_ts = event.ts;
    return 0;
}

SocketSub::SocketSub(const std::string& path) : Subscriber(Filter()), m_path(path) {
    if (path.size() >= sizeof(sockaddr_un::sun_path)) throw Exception(uid_of(path) + " is too long");
}

int SocketSub::execute_(const Event& event) {
    const UniqueFd fd(lift_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)));
    if (!fd) return fail(errno);

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    m_path.copy(address.sun_path, sizeof address.sun_path - 1);
    Json::Value json;
    event.to_json(json);
    const std::string text = json::write(json);
    const ssize_t sent = sendto(fd.get(), text.data(), text.size(), MSG_DONTWAIT,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return sent < 0 ? fail(errno) : 0;
}

int SocketSub::fail(int err) const {
    CORVO_LOG(ERROR, detail::COMP, "failed notifing '%s' - [%s]", m_path.c_str(), std::strerror(err));
    return -err;
}

}  // namespace corvo::notif
