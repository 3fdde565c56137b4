#include "infra/corvo_scheduler.h"

#include <json/value.h>

#include <algorithm>
#include <stdexcept>

#include "infra/corvo_logger.h"
#include "infra/corvo_notif.h"
#include "utils/clock.h"
#include "utils/exception.h"

namespace corvo {
namespace {

const std::string COMP = "sched";

const notif::notif_t HOG{"core", "sched.hog", notif::SEV_WARN};

constexpr int IDLE_WAIT_MS = 1000;

}  // namespace

/** Limits how long the loop waits, and serves descriptors even while other tasks are due back to back. */
class Maintenance : public Task {
 public:
    explicit Maintenance(Scheduler* sched) : Task(0), m_sched(sched) {}

    int execute() override {
        m_sched->handle_pending_events(0);
        return Scheduler::MAX_WAIT_TIME_MS;
    }
    std::string get_name() const override { return "Event Poller"; }

 private:
    Scheduler* m_sched;
};

Scheduler::Scheduler() : m_stats(std::make_unique<SchedStats>(this)) {
    add(std::make_shared<Maintenance>(this), 0);
}

Scheduler::~Scheduler() {
    clear();
}

void Scheduler::add(std::shared_ptr<Task>&& task, unsigned int delay_ms) {
    // A queued task is moved, since the queue is sorted by due time.
    if (const auto queued = find(task.get()); queued != m_tasks.end()) m_tasks.erase(queued);
    task->m_when = now() + delay_ms;
    ++m_stats->adds;
    m_stats->tasks.try_emplace(task->get_name());
    m_tasks.insert(std::move(task));
}

void Scheduler::add(const std::shared_ptr<Task>& task, unsigned int delay_ms) {
    add(std::shared_ptr<Task>(task), delay_ms);
}

bool Scheduler::remove(const Task* task) {
    const auto it = find(task);
    if (it == m_tasks.end()) return false;
    // Extracted first and destroyed at the end of this function, because its destructor may call back.
    const auto node = m_tasks.extract(it);
    ++m_stats->removes;
    m_stats->tasks.erase(node.value()->get_name());
    return true;
}

bool Scheduler::exists(const Task* task) const {
    return find(task) != m_tasks.end();
}

bool Scheduler::has_task(Task* task) {
    return exists(task);
}

Scheduler::task_queue::const_iterator Scheduler::find(const Task* task) const {
    return std::find_if(m_tasks.begin(), m_tasks.end(),
                        [task](const auto& queued) { return queued.get() == task; });
}

void Scheduler::add(const std::shared_ptr<Event>& ev, EventState state, unsigned int timeout_ms) {
    m_poller.add(ev, state, timeout_ms);
}

bool Scheduler::remove(const Event* ev) {
    return m_poller.remove(ev);
}

bool Scheduler::exists(const Event* ev) const {
    return m_poller.exists(ev);
}

void Scheduler::stop(int cause) {
    if (cause == CAUSE_RUNNING) throw Exception("Non-valid argument for stopping scheduler");
    m_stop_cause = cause;
}

bool Scheduler::wait(unsigned int ms) {
    return m_poller.wait(static_cast<int>(ms));
}

bool Scheduler::handle_pending_events(int timeout_ms) {
    return m_poller.handle_pending_events(timeout_ms);
}

uint64_t Scheduler::now() {
    return monotonic_ms();
}

void Scheduler::register_to_scheduler_event(event_e ev, std::function<void(int)> fn) {
    if (ev == SCHED_EVENT_STOP) m_stop_cb = std::move(fn);
}

int Scheduler::step() {
    return step(/*wait_follows=*/false);
}

int Scheduler::step(bool wait_follows) {
    if (m_tasks.empty()) return m_poller.handle_pending_events(0) ? 0 : -1;

    const uint64_t started_ms = now();
    const auto diff = static_cast<int64_t>((*m_tasks.begin())->m_when - started_ms);
    if (diff >= 1) {
        m_poller.handle_pending_events(0);
        // The wait that follows looks for more, unless the event has ended the loop.
        const bool stays = m_stop_cause == CAUSE_RUNNING;
        if (wait_follows && stays && !m_poller.has_expired()) return static_cast<int>(diff);
        return m_poller.handle_pending_events(0) ? 0 : static_cast<int>(diff);
    }
    run_next_task(started_ms);
    return 0;
}

void Scheduler::run_next_task(uint64_t started_ms) {
    m_poller.forget_look_ahead();
    // Not queued while it runs: `remove` and `exists` don't find the running task.
    std::shared_ptr<Task> task = *m_tasks.begin();
    m_tasks.erase(m_tasks.begin());
    const int delay_ms = task->execute();
    account(*task, started_ms);
    if (delay_ms >= 0) add(std::move(task), static_cast<unsigned int>(delay_ms));
}

void Scheduler::account(const Task& task, uint64_t started_ms) {
    const uint64_t ended_ms = now();
    const auto run_ms = static_cast<uint32_t>(ended_ms - started_ms);
    SchedStats::TaskStats& stats = m_stats->tasks[task.get_name()];
    stats.last_ms = ended_ms;
    stats.max_ms = std::max(stats.max_ms, run_ms);
    stats.avg_ms = static_cast<uint32_t>(run_ms * 0.5 + stats.avg_ms * 0.5);

    const int64_t budget_ms = task.hog_timeout_ms();
    if (budget_ms == 0 || budget_ms >= int64_t{run_ms}) return;
    ++stats.hogs;
    const std::string name = task.get_name();
    notif::notify(HOG, "Task: %s [~%u ms]", name.c_str(), run_ms);
    CORVO_LOG(WARN, COMP, "HOG: '%s' [~%u ms]", name.c_str(), run_ms);
}

int Scheduler::run() {
    try {
        while (m_stop_cause == CAUSE_RUNNING) {
            const int wait_ms = step(/*wait_follows=*/true);
            if (wait_ms != 0) m_poller.look_ahead(wait_ms > 0 ? wait_ms : IDLE_WAIT_MS);
        }
    } catch (const std::runtime_error&) {
        m_stop_cause = CAUSE_EXCEPTION;
    }
    call_stop_callback();
    clear();
    return m_stop_cause;
}

void Scheduler::call_stop_callback() {
    if (!m_stop_cb) return;
    try {
        const auto stop_cb = m_stop_cb;  // copied because it may register another one
        stop_cb(m_stop_cause);
    } catch (const std::runtime_error& e) {
        CORVO_LOG(ERROR, COMP, "Error on shutdown: %s", e.what());
    }
}

void Scheduler::clear() {
    while (!m_tasks.empty())
        remove(m_tasks.begin()->get());
    m_poller.clear();
}

void Scheduler::stats(Json::Value& out) const {
    Json::Value& tasks = out["tasks"];
    tasks["adds"] = Json::UInt64{m_stats->adds};
    tasks["removes"] = Json::UInt64{m_stats->removes};
    Json::Value& list = tasks["tasks"];
    list = Json::arrayValue;
    const uint64_t now_ms = now();
    for (const auto& task : m_tasks) {
        const std::string name = task->get_name();
        const auto known = m_stats->tasks.find(name);
        const auto stats = known != m_stats->tasks.end() ? known->second : SchedStats::TaskStats{};
        Json::Value& entry = list.append(Json::objectValue);
        entry["name"] = name;
        entry["when"] = Json::UInt64{task->m_when > now_ms ? task->m_when - now_ms : 0};
        entry["last_ms"] = Json::Int64{stats.last_ms ? static_cast<int64_t>(now_ms - stats.last_ms) : -1};
        entry["max_ms"] = stats.max_ms;
        entry["avg_ms"] = stats.avg_ms;
        entry["hogs"] = stats.hogs;
    }
}

}  // namespace corvo
