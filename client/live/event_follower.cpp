#include "client/live/event_follower.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/json_access.h"
#include "infra/json/corvo_json.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

/** Time between two checks whether the daemon still knows us; a restarted one doesn't. */
constexpr uint64_t LOOK_MS = 2000;
/** Time between two reads of the log if the daemon can't reach any socket of ours. */
constexpr uint64_t POLL_MS = 1000;

}  // namespace

Json::Value logged_events(Daemon& daemon, const std::string& severity) {
    Json::Value params = notifications_params("log", "show");
    params["sev"] = severity;
    Json::Value events = member_of(daemon.call("notifications", params), {"notif", "log"});
    if (!events.isArray()) throw Failure("the reply has no events in it");
    return events;
}

void EventFollower::run() {
    begin_first();
    uint64_t next_look = corvo::monotonic_ms();
    for (;;) {
        uint64_t now = corvo::monotonic_ms();
        wait(now < next_look ? static_cast<int>(next_look - now) : 0);
        take_waiting();
        if (corvo::monotonic_ms() < next_look) continue;
        look();
        next_look = corvo::monotonic_ms() + (m_polling ? POLL_MS : LOOK_MS);
    }
}

void EventFollower::begin_first() {
    try {
        begin();
    } catch (const NoDaemon& e) {
        if (m_pid == 0) throw;
        // It answered, and disappeared before everything was set up: wait for it as usual.
        lose(e.what());
    } catch (const BrokenOff& e) {
        if (m_pid == 0) throw;
        lose(e.what());
    }
}

void EventFollower::look() {
    try {
        if (m_daemon)
            look_after_daemon();
        else
            begin();
    } catch (const NoDaemon& e) {
        lose(e.what());
    } catch (const BrokenOff& e) {
        lose(e.what());
    } catch (const TimedOut& e) {
        if (!m_complained) m_context.complain(std::string(e.what()) + "; waiting");
        m_complained = true;
    }
}

/** All or nothing: if a part fails, the next attempt starts over. */
void EventFollower::begin() {
    std::unique_ptr<Daemon> daemon = m_context.new_daemon();
    const int64_t pid = static_cast<int64_t>(count_of(member_of(daemon->call("status"), "pid")));
    if (m_pid != 0 && pid != m_pid) m_sequence.restart();
    m_pid = pid;
    try {
        set_up(std::move(daemon));
    } catch (const Failure&) {
        drop_all();
        throw;
    }
}

void EventFollower::set_up(std::unique_ptr<Daemon> daemon) {
    m_daemon = std::move(daemon);
    subscribe();
    if (m_waiting) m_context.complain("the daemon is there again");
    m_waiting = m_complained = false;
    take_all(past_events());
    take_waiting();
}

void EventFollower::subscribe() {
    m_polling = false;
    if (!m_options.path.empty()) {
        // Absolute, because the daemon resolves a relative path in its own working directory.
        if (try_path(std::filesystem::absolute(m_options.path))) return;
        m_context.complain("the daemon can't reach " + m_options.path + "; asking once a second instead");
    } else {
        const auto [paths, trouble] = subscriber_places(m_daemon->address());
        if (std::any_of(paths.begin(), paths.end(), [this](const auto& path) { return try_path(path); }))
            return;
        m_context.complain((trouble.empty() ? "the daemon can't reach a socket of ours" : trouble) +
                           "; asking once a second instead");
    }
    m_polling = true;
}

bool EventFollower::try_path(const std::string& path) {
    auto connect = [this] { return m_context.new_daemon(); };
    m_subscription =
        std::make_unique<Subscription>(*m_daemon, connect, path, daemon_user(m_daemon->address()));
    if (hears_itself()) return true;
    m_subscription.reset();
    return false;
}

/** The daemon notifies a new subscriber of its own subscription before it replies to the request. */
bool EventFollower::hears_itself() {
    return interrupt::wait_readable(m_subscription->socket().fd(), 200);
}

void EventFollower::wait(int timeout_ms) {
    m_context.out().wait(timeout_ms, m_subscription ? m_subscription->socket().fd() : -1);
}

void EventFollower::look_after_daemon() {
    if (m_polling)
        take_all(past_events());
    else if (!still_subscribed())
        lose("the daemon has forgotten us");
    if (m_complained) m_context.complain("the daemon answers again");
    m_complained = false;
}

bool EventFollower::still_subscribed() {
    const Json::Value sockets =
        member_of(m_daemon->call("notifications", notifications_params("socket", "ls")), "ls");
    return std::any_of(sockets.begin(), sockets.end(), [this](const Json::Value& socket) {
        return string_of(member_of(socket, "name")) == m_subscription->socket().path();
    });
}

void EventFollower::lose(const std::string& why) {
    if (m_subscription) m_subscription->forget();
    drop_all();
    if (!m_waiting) m_context.complain(why + "; waiting for it");
    m_waiting = true;
}

void EventFollower::drop_all() {
    m_subscription.reset();
    m_daemon.reset();
}

/** All of them: even events that aren't shown count for finding gaps. */
Json::Value EventFollower::past_events() {
    return logged_events(*m_daemon, "info");
}

void EventFollower::take_all(const Json::Value& events) {
    for (const Json::Value& event : events)
        take(event);
    m_context.out().flush();
}

void EventFollower::take_waiting() {
    std::string text;
    while (m_subscription && m_subscription->socket().receive(text)) {
        interrupt::check();  // a sender faster than us can't keep us here
        Json::Value json;
        if (!corvo::json::parse(text, json)) continue;  // not from the daemon
        std::optional<Notification> event = Notification::read(json);
        if (event && m_sequence.missing_before(event->id) > 0) fill_gap();
        take(json);
    }
    m_context.out().flush();
}

/** Events that didn't fit in the socket may still be in the log. */
void EventFollower::fill_gap() {
    Json::Value events;
    try {
        events = past_events();
    } catch (const Failure&) {
        return;  // report the gap instead
    }
    take_all(events);
}

void EventFollower::take(const Json::Value& json) {
    std::optional<Notification> event = Notification::read(json);
    if (!event) return;
    uint64_t missing = m_sequence.missing_before(event->id);
    if (!m_sequence.take(event->id)) return;
    if (missing > 0) tell_missing(missing);
    if (severity_rank(event->severity) >= m_least) tell(*event, json);
}

void EventFollower::tell(const Notification& event, const Json::Value& json) {
    const Terminal& out = m_context.out();
    if (m_context.json()) return m_context.print_json(json);
    out.print(event.line(out) + "\n");
}

void EventFollower::tell_missing(uint64_t count) {
    if (m_context.json()) {
        Json::Value gap;
        gap["missed"] = Json::UInt64(count);
        m_context.print_json(gap);
        return;
    }
    const Terminal& out = m_context.out();
    out.print(out.paint(Terminal::DIM,
                        drawn("… ") + count_text(count) + (count == 1 ? " event" : " events") + " missed") +
              "\n");
}

}  // namespace brumectl
