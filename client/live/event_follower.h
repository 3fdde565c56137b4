#pragma once
// `events -f`: shows the daemon's events as they come, for as long as the reader likes. Survives restarts of
// the daemon, and copes with daemons that can't reach our socket.

#include <json/value.h>

#include <memory>
#include <string>

#include "client/context.h"
#include "client/live/notification.h"
#include "client/live/subscription.h"

namespace brumectl {

struct FollowOptions {
    std::string severity = "info";  ///< the lowest that is shown
    std::string path = {};          ///< of our socket; chosen if empty
};

class EventFollower {
 public:
    EventFollower(Context& context, const FollowOptions& options)
        : m_context(context), m_options(options), m_least(severity_rank(options.severity)) {}

    /** Never returns. Throws Interrupted; Failure if it can't start or its output can't be written. */
    [[noreturn]] void run();

 private:
    void begin();
    void begin_first();
    void set_up(std::unique_ptr<Daemon> daemon);
    void subscribe();
    bool try_path(const std::string& path);
    bool hears_itself();
    void wait(int timeout_ms);
    void look();
    void look_after_daemon();
    bool still_subscribed();
    void lose(const std::string& why);
    void drop_all();
    Json::Value past_events();
    void take_all(const Json::Value& events);
    void take_waiting();
    void fill_gap();
    void take(const Json::Value& event);
    void tell(const Notification& event, const Json::Value& json);
    void tell_missing(uint64_t count);

    Context& m_context;
    const FollowOptions m_options;
    const int m_least;
    std::unique_ptr<Daemon> m_daemon;  ///< null while the daemon is gone
    int64_t m_pid = 0;
    std::unique_ptr<Subscription> m_subscription;  ///< null while the daemon is gone or can't reach us
    EventSequence m_sequence;
    bool m_complained = false;
    bool m_waiting = false;  ///< for a daemon that was there before; the user has been told
    bool m_polling = false;
};

/** Events of the daemon's log at `severity` ("info", "warn" or "error") or above. Throws Failure. */
Json::Value logged_events(Daemon& daemon, const std::string& severity);

}  // namespace brumectl
