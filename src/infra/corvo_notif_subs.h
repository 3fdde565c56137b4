#pragma once
// The subscribers to notifications: the log of recent events, the table of warnings by kind, and clients'
// Unix datagram sockets. A subscriber's filter states what it wants; its `uid` identifies it.

#include <json/value.h>

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>

#include "infra/corvo_notif_event.h"

namespace corvo::notif {

class Subscriber {
 public:
    explicit Subscriber(const Filter& filter);
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;
    virtual ~Subscriber();

    /** 0 or a negated errno value. */
    virtual int execute_(const Event& event) = 0;
    virtual std::string uid() const = 0;

    /** Delivers the event if it passes the filter. */
    void offer(const Event& event);
    const Filter& filter() const { return m_filter; }
    /** Number of attempted deliveries, including failed ones. */
    uint64_t hits() const { return m_hits; }

 private:
    Filter m_filter;
    uint64_t m_hits = 0;
};

class LogSub : public Subscriber {
 public:
    static constexpr const char* UID = "log";
    static constexpr size_t MAX_EVENTS = 50;

    LogSub() : Subscriber(Filter()) {}
    int execute_(const Event& event) override;
    std::string uid() const override { return UID; }

    /** Oldest first. */
    const std::deque<Event>& events() const { return m_events; }
    void clear() { m_events.clear(); }

 private:
    std::deque<Event> m_events;
};

/** One kind of warning since the last clearing. Its count and time aren't part of its identity. */
struct Alert {
    EventID id;
    Severity severity;
    mutable uint64_t count = 0;
    mutable int64_t last_ts = 0;  ///< seconds since the Epoch

    bool operator==(const Alert& other) const { return id == other.id && severity == other.severity; }
    void to_json(Json::Value& out) const;
};

struct AlertHasher {
    size_t operator()(const Alert& alert) const {
        return std::hash<std::string>()(alert.id.feature) ^ std::hash<std::string>()(alert.id.name);
    }
};

class AlertSub : public Subscriber {
 public:
    static constexpr const char* UID = "alerts";
    using alert_set = std::unordered_set<Alert, AlertHasher>;

    AlertSub() : Subscriber(Filter{"*", "*", SEV_WARN}) {}
    int execute_(const Event& event) override;
    std::string uid() const override { return UID; }

    const alert_set& alerts() const { return m_alerts; }
    void clear() { m_alerts.clear(); }

 private:
    alert_set m_alerts;
};

/** Sends each event as a JSON datagram. Keeps nothing open towards the client, which may have gone. */
class SocketSub : public Subscriber {
 public:
    /** Throws corvo::Exception if the path is too long for a socket address. */
    explicit SocketSub(const std::string& path);
    int execute_(const Event& event) override;
    std::string uid() const override { return uid_of(m_path); }

    const std::string& path() const { return m_path; }
    static std::string uid_of(const std::string& path) { return "socket: [" + path + "]"; }

 private:
    int fail(int err) const;

    std::string m_path;
};

}  // namespace corvo::notif
