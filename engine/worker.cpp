#include "worker.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "alternate_stack.h"
#include "blocked_signals.h"
#include "engine_error.h"
#include "monotonic.h"

namespace corvo::engine {
namespace {

using std::chrono::steady_clock;

/**
 * Jobs come in quick succession, and waking a thread takes longer than many of them. So for a moment, both
 * sides wait for each other without sleeping, where there are processors for both.
 */
constexpr auto WAIT_AWAKE = std::chrono::microseconds(20);
constexpr int CHECKS_PER_MOMENT = 32;
/** Before traffic is looked at again that couldn't be worked on. */
constexpr uint64_t REST_MS = 1000;

void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield");
#endif
}

template <typename Condition>
bool wait_awake(Condition is_met) {
    static const bool is_worthwhile = std::thread::hardware_concurrency() > 1;
    const auto end = steady_clock::now() + WAIT_AWAKE;
    do {
        for (int i = 0; i < CHECKS_PER_MOMENT; i++, relax())
            if (is_met()) return true;
    } while (is_worthwhile && steady_clock::now() < end);
    return false;
}

}  // namespace

Worker::Worker(const std::string& name, CaptureLane& lane, DataPath& path)
    : m_lane(lane), m_path(path), m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
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

void Worker::start(const Job& job, unsigned part) {
    m_job = &job;
    m_part = part;
    m_given++;
    if (m_asleep) wake();
}

std::exception_ptr Worker::finish() {
    const uint32_t given = m_given;
    if (!wait_awake([&] { return m_done == given; }))
        for (uint32_t done = m_done; done != given; done = m_done)
            m_done.wait(done);
    return std::exchange(m_failure, nullptr);
}

void Worker::ask_to_end() {
    m_ending = true;
    wake();
}

bool Worker::ends_by(steady_clock::time_point time) {
    std::unique_lock lock(m_end_mutex);
    return m_end.wait_until(lock, time, [this] { return m_has_ended; });
}

void Worker::wake() const {
    eventfd_write(m_wake.get(), 1);
}

void Worker::work() {
    const AlternateStack stack;
    while (!m_ending) {
        while (do_job())
            wait_awake([this] { return m_given != m_done; });
        serve();
        sleep();
    }
    const std::lock_guard lock(m_end_mutex);
    m_has_ended = true;
    m_end.notify_all();
}

bool Worker::do_job() {
    if (m_given == m_done) return false;
    try {
        (*m_job)(m_part);
    } catch (...) {
        m_failure = std::current_exception();
    }
    m_done++;
    m_done.notify_one();
    return true;
}

void Worker::serve() {
    m_turn.lock_politely();
    const std::lock_guard lock(m_turn, std::adopt_lock);
    const uint64_t now_ms = monotonic_ms();
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
    if (m_given == m_done && !m_ending) {
        const uint64_t now_ms = monotonic_ms();
        const bool rests = now_ms < m_rest_until_ms;
        const uint64_t due_ms = rests ? m_rest_until_ms : m_tick_due_ms;
        pollfd fds[] = {{m_wake.get(), POLLIN, 0}, {rests ? -1 : m_lane.event_fd(), POLLIN, 0}};
        poll(fds, std::size(fds), static_cast<int>(std::max(due_ms, now_ms) - now_ms));
    }
    m_asleep = false;
    eventfd_t count = 0;
    eventfd_read(m_wake.get(), &count);
}

}  // namespace corvo::engine
