#include "worker.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <system_error>

#include "alternate_stack.h"
#include "blocked_signals.h"
#include "engine_error.h"
#include "monotonic.h"

namespace corvo::engine {
namespace {

using std::chrono::steady_clock;

/** What is processed of a backlog during one turn. */
constexpr size_t BYTES_PER_TURN = 64UL << 10;
/** Before traffic is looked at again that couldn't be worked on. */
constexpr uint64_t REST_MS = 1000;

}  // namespace

Worker::Worker(const std::string& name, CaptureLane& lane, DataPath& path, size_t backlog_bytes)
    : m_lane(lane),
      m_path(path),
      m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_backlog(backlog_bytes),
      m_worth_waking(backlog_bytes / 16) {
    if (!m_wake) throw Error("no event descriptor for a worker" + reason(errno));
    const BlockedSignals none;
    try {
        m_thread = std::thread([this] { work(); });
    } catch (const std::system_error& e) {
        throw Error("a worker can't be started" + reason(e.code().value()));
    }
    pthread_setname_np(m_thread.native_handle(), name.c_str());
}

Worker::~Worker() {
    ask_to_end();
    m_thread.join();
}

void Worker::leave(DataPath& path, const api::pkt_& pkt) {
    while (!m_backlog.add(path, pkt)) {
        see_to_them();
        const std::lock_guard lock(m_turn);
        m_backlog.work_off(BYTES_PER_TURN, monotonic_ms());
    }
}

void Worker::see_to_them() {
    m_backlog.publish();
    if (waiting() >= m_worth_waking && m_asleep && m_asleep.exchange(false)) eventfd_write(m_wake.get(), 1);
}

void Worker::ask_to_end() {
    m_ending = true;
    eventfd_write(m_wake.get(), 1);
}

bool Worker::ends_by(steady_clock::time_point time) {
    std::unique_lock lock(m_end_mutex);
    return m_end.wait_until(lock, time, [this] { return m_has_ended; });
}

void Worker::work() {
    const AlternateStack stack;
    while (!m_ending) {
        serve();
        if (waiting() == 0) sleep();
    }
    const std::lock_guard lock(m_end_mutex);
    m_has_ended = true;
    m_end.notify_all();
}

void Worker::serve() {
    m_turn.lock_politely();
    const std::lock_guard lock(m_turn, std::adopt_lock);
    const uint64_t now_ms = monotonic_ms();
    m_backlog.work_off(BYTES_PER_TURN, now_ms);
    if (now_ms < m_rest_until_ms) return;
    try {
        m_lane.poll(m_path);
        if (now_ms >= m_tick_due_ms) m_tick_due_ms = now_ms + static_cast<uint64_t>(m_path.tick());
    } catch (const std::exception& e) {
        m_problem = e.what();
        m_rest_until_ms = now_ms + REST_MS;
    }
}

void Worker::sleep() {
    m_asleep = true;
    if (waiting() < m_worth_waking && !m_ending) await();
    m_asleep = false;
}

void Worker::await() {
    const uint64_t now_ms = monotonic_ms();
    const bool rests = now_ms < m_rest_until_ms;
    const uint64_t due_ms = rests ? m_rest_until_ms : m_tick_due_ms;
    pollfd fds[] = {{m_wake.get(), POLLIN, 0}, {rests ? -1 : m_lane.event_fd(), POLLIN, 0}};
    poll(fds, std::size(fds), static_cast<int>(std::max(due_ms, now_ms) - now_ms));
    eventfd_t count = 0;
    if (fds[0].revents != 0) eventfd_read(m_wake.get(), &count);
}

}  // namespace corvo::engine
