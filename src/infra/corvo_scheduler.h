#pragma once
// The daemon's main loop: a single-threaded cooperative scheduler that interleaves timed tasks with the
// events of its poller. Due tasks go before events, and one task runs per step; nothing is preempted.

#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "infra/corvo_event_poller.h"
#include "infra/corvo_task.h"

namespace Json {
class Value;
}

namespace corvo {

class Scheduler;

/** Counters of the scheduler; tasks with the same name share an entry. */
struct SchedStats {
    struct TaskStats {
        uint64_t last_ms = 0;  ///< monotonic time at which the last run ended; 0 if it never ran
        uint32_t avg_ms = 0;
        uint32_t max_ms = 0;
        uint32_t hogs = 0;
    };

    explicit SchedStats(Scheduler* sched) : m_sched(sched) {}

    uint64_t adds = 0;
    uint64_t removes = 0;
    Scheduler* m_sched;
    std::unordered_map<std::string, TaskStats> tasks;
};

class Scheduler {
 public:
    enum event_e : int { SCHED_EVENT_STOP = 0 };

    static constexpr int MAX_WAIT_TIME_MS = 100;
    /** The stop cause while the loop runs; no real cause may have this value. */
    static constexpr int CAUSE_RUNNING = -1000;
    /** An exception of a task or event ended the loop. */
    static constexpr int CAUSE_EXCEPTION = -1001;

    Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler();

    void add(std::shared_ptr<Task>&& task, unsigned int delay_ms);
    void add(const std::shared_ptr<Task>& task, unsigned int delay_ms);
    /** False if the task isn't queued, which includes the running task. */
    bool remove(const Task* task);
    bool exists(const Task* task) const;
    bool has_task(Task* task);

    void add(const std::shared_ptr<Event>& ev, EventState state, unsigned int timeout_ms);
    bool remove(const Event* ev);
    bool exists(const Event* ev) const;

    /**
     * Ends the loop at its next check. Signal-safe with every cause except CAUSE_RUNNING, which
     * throws corvo::Exception.
     */
    void stop(int cause);
    bool wait(unsigned int ms);
    bool handle_pending_events(int timeout_ms);
    /** Milliseconds of the monotonic clock. */
    static uint64_t now();
    /** For SCHED_EVENT_STOP, replaces the callback; ignores all other values. */
    void register_to_scheduler_event(event_e ev, std::function<void(int)> fn);

    /**
     * Returns 0 to be called again at once; a positive number of milliseconds until a task is due; or -1 if
     * there are neither tasks nor events.
     */
    int step();
    /**
     * Runs until stopped and returns the stop cause. By then the stop callback has run and everything
     * is cleared.
     */
    int run();
    void clear();
    void stats(Json::Value& out) const;

 private:
    struct TaskCompare {
        bool operator()(const std::shared_ptr<Task>& a, const std::shared_ptr<Task>& b) const {
            return a->m_when < b->m_when;
        }
    };
    using task_queue = std::multiset<std::shared_ptr<Task>, TaskCompare>;

    task_queue::const_iterator find(const Task* task) const;
    /**
     * `step`, but skips the second check of the descriptors if a wait follows, since that checks them too.
     */
    int step(bool wait_follows);
    void run_next_task(uint64_t started_ms);
    /** Records the statistics of a run that ends now and reports it if it took too long. */
    void account(const Task& task, uint64_t started_ms);
    void call_stop_callback();

    task_queue m_tasks;
    EventPoller m_poller;
    volatile std::sig_atomic_t m_stop_cause = CAUSE_RUNNING;
    std::function<void(int)> m_stop_cb;
    std::unique_ptr<SchedStats> m_stats;
};

}  // namespace corvo
