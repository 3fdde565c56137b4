#pragma once
// The hub that delivers notifications to their subscribers, and the RPC operations on the subscribers' data.
// There is one per process, built before main. Code that only raises events needs just corvo_notif.h.

#include <json/value.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_notif_subs.h"

namespace corvo::notif {

/** Counts the deliveries in progress; only the first may proceed. */
class NotifGuard {
 public:
    NotifGuard() : m_first(g_count.fetch_add(1) == 0) {}
    NotifGuard(const NotifGuard&) = delete;
    NotifGuard& operator=(const NotifGuard&) = delete;
    ~NotifGuard() { --g_count; }

    bool first() const { return m_first; }

    static std::atomic<unsigned> g_count;

 private:
    bool m_first;
};

class Notif {
 public:
    /** Subscribes the log, then the table of alerts. */
    Notif();

    /** Throws corvo::Exception if the uid is already subscribed. */
    void subscribe(std::unique_ptr<Subscriber>&& sub);
    /** Throws corvo::Exception if the uid is unknown. */
    void unsubscribe(const std::string& uid);
    /** Offers the event to all subscribers in the order of subscription. */
    void notify(const Event& event);
    /** Performs a request's operation. Throws corvo::Exception with a text for the client. */
    void ops(const Json::Value& params, Json::Value& res);

 private:
    using subscribers = std::vector<std::unique_ptr<Subscriber>>;

    void handle_rpc_log(const Json::Value& params, Json::Value& res);
    void handle_rpc_alerts(const Json::Value& params, Json::Value& res);
    void handle_rpc_socket(const Json::Value& params, Json::Value& res);
    void list_sockets(Json::Value& out) const;
    subscribers::iterator find(const std::string& uid);

    subscribers m_subs;  ///< null if unsubscribed during the current delivery
};

}  // namespace corvo::notif
