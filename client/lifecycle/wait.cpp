#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "client/context.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/lifecycle/lifecycle.h"
#include "client/text/complaints.h"
#include "client/text/engine_state.h"
#include "client/text/json_access.h"
#include "client/text/method_table.h"
#include "client/wire/daemon_log.h"
#include "client/wire/local_daemon.h"
#include "infra/json/corvo_json.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

constexpr int POLL_MS = 100;
/** Every look has that long, however little time is left: a daemon that is busy isn't one that doesn't
 * answer. */
constexpr int LEAST_LOOK_MS = 500;
constexpr unsigned LOG_LINES = 1000;
constexpr int LOG_TIMEOUT_MS = 1000;
/** The service's log, for a service that ends before it ever answers. */
constexpr const char* SERVICE_SOCKET = "/run/brumecpd/brumecpd.sock";
constexpr const char* SERVICE_LOG = "/var/log/brumecpd/brumecpd.log";
constexpr const char* GONE = "gone";

/** The minimum engine state for a word of --for; none means that nobody answers. */
struct Goal {
    const char* word;
    std::optional<engine_state_e> least;
};
constexpr Goal GOALS[] = {{"answering", UNLOADED},
                          {"loaded", LOADED},
                          {"activated", ACTIVE},
                          {"attached", ATTACHED},
                          {GONE, std::nullopt}};

std::vector<std::string> goal_words() {
    std::vector<std::string> words;
    for (const Goal& goal : GOALS)
        words.push_back(goal.word);
    return words;
}

class Watch {
 public:
    Watch(Context& context, const Goal& goal)
        : m_context(context),
          m_goal(goal),
          m_deadline_ms(corvo::monotonic_ms() + static_cast<uint64_t>(context.timeout_ms())) {}

    /** Returns the state waited for. Throws TimedOut, which reports the last state and the cause. */
    std::string run() {
        while (!look()) {
            const int left = left_ms();
            if (left == 0) fail();
            std::vector<pollfd> none;
            interrupt::wait(none, std::min(left, POLL_MS));
        }
        return m_state;
    }

 private:
    int left_ms() const {
        const uint64_t now = corvo::monotonic_ms();
        return now < m_deadline_ms ? static_cast<int>(m_deadline_ms - now) : 0;
    }

    /** Queries a daemon that may be a different one from last time. */
    bool look() {
        auto daemon = m_context.new_daemon();
        daemon->set_timeout_ms(std::max(left_ms(), LEAST_LOOK_MS));
        try {
            see(*daemon, daemon->call("status"));
            m_daemon = std::move(daemon);
        } catch (const NoDaemon& e) {
            m_daemon.reset();
            m_seen = e.what();
            m_state = GONE;
            return !m_goal.least && !e.is_denied();
        } catch (const Usage&) {
            throw;
        } catch (const Failure& e) {
            m_daemon.reset();
            m_seen = e.what();
            return false;  // it is stuck, or just ending
        }
        const auto state = brumectl::state_of(m_state);
        return m_goal.least && state && *state >= *m_goal.least;
    }

    void see(Daemon& daemon, const Json::Value& status) {
        m_state = string_of(member_of(status, "state"));
        m_seen = "the engine is " + m_state;
        const std::string log = string_of(member_of(status, "logfile"));
        const LocalDaemon local(daemon.address(), static_cast<pid_t>(count_of(member_of(status, "pid"))));
        m_log = local.reaches(log) ? local.path_of(log) : "";
    }

    /** The log of a daemon that is gone, if its place is known. */
    std::string log_file() const {
        if (!m_log.empty()) return m_log;
        const std::vector<Address> tried = m_context.addresses();
        const bool service = std::any_of(tried.begin(), tried.end(), [](const Address& address) {
            return address.path == SERVICE_SOCKET;
        });
        return service ? SERVICE_LOG : "";
    }

    /** The cause according to the log; empty if there is none. */
    std::string cause() const {
        try {
            if (!m_daemon) return last_error(last_lines_of_file(log_file()));
            m_daemon->set_timeout_ms(LOG_TIMEOUT_MS);
            return last_error(last_log_lines(*m_daemon, LOG_LINES));
        } catch (const Failure&) {
            return {};  // what is already known is more important
        }
    }

    [[noreturn]] void fail() const {
        const std::string told = cause();
        throw TimedOut(std::string("not ") + m_goal.word + " in time: " + m_seen +
                       (told.empty() ? "" : "; the last error in its log: " + told));
    }

    Context& m_context;
    const Goal& m_goal;
    uint64_t m_deadline_ms;
    std::unique_ptr<Daemon> m_daemon;  ///< the one that answered last; none if the last attempt failed
    std::string m_state;
    std::string m_seen;
    std::string m_log;
};

void wait(Context& context, const std::string& word) {
    const auto* goal =
        std::find_if(std::begin(GOALS), std::end(GOALS), [&](const Goal& g) { return word == g.word; });
    if (goal == std::end(GOALS))
        throw Usage("'--for' takes " + CLI::detail::join(goal_words(), ", ") + ", not '" + word + "'" +
                    did_you_mean(word, goal_words()));
    const std::string state = Watch(context, *goal).run();
    Json::Value json;
    json["state"] = state;
    context.out().print(context.json() ? corvo::json::write_line(json) : harmless(state) + "\n");
}

}  // namespace

void add_wait(CLI::App& app, Context& context) {
    auto word = std::make_shared<std::string>(GOALS[0].word);
    CLI::App* wait_word = app.add_subcommand("wait", "Wait for the daemon, or for a state of its engine");
    wait_word->footer(
        "Waits for at most --timeout, by default 10 seconds. Then it fails with status 4 and prints what it "
        "saw last and the last error in the log.");
    const std::string choices = CLI::detail::join(goal_words(), "|");
    wait_word->add_option("--for", *word, "What to wait for (default: answering); a later state counts, too")
        ->type_name(choices);
    wait_word->callback([&context, word] { wait(context, *word); });
}

}  // namespace brumectl
