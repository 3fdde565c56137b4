#pragma once
// One thread of the data path: it captures, classifies and forgets its share of live traffic by itself, and
// classifies the packets of captures that are left to it.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "backlog.h"
#include "capture_lane.h"
#include "data_path.h"
#include "monotonic.h"
#include "owned_fd.h"
#include "turn_lock.h"

namespace corvo::engine {

class Worker {
 public:
    /**
     * Starts a thread with this name, of at most 15 bytes. `lane` and `path` must outlive this; nobody may
     * touch them without `turn`. `backlog_bytes`: see Backlog. Throws Error if there can't be a thread.
     */
    Worker(const std::string& name, CaptureLane& lane, DataPath& path, size_t backlog_bytes);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    /** Waits for the end, however long it takes. */
    ~Worker();

    TurnLock& turn() { return m_turn; }

    /**
     * Leaves a packet to it, for `path`, which nobody may touch until `catch_up`. If too many are waiting,
     * some are processed here. Throws std::bad_alloc.
     */
    void leave(DataPath& path, const api::pkt_& pkt);
    /** Call after some have been left. */
    void see_to_them();
    /** Bytes of what it has been left and hasn't processed. */
    size_t waiting() const { return m_backlog.waiting(); }
    /** Only during our turn: processes what is still waiting. */
    void catch_up() { m_backlog.work_off(m_backlog.size(), monotonic_ms()); }

    void ask_to_end();
    /** Whether it has ended by then. */
    bool ends_by(std::chrono::steady_clock::time_point time);
    /** What went wrong with its share of the traffic. Each problem is told once. Only during our turn. */
    std::string take_problem() { return std::exchange(m_problem, {}); }

 private:
    void work();
    void serve();
    void sleep();
    void await();

    CaptureLane& m_lane;
    DataPath& m_path;
    OwnedFd m_wake;  ///< readable when packets are waiting, or it is to end
    TurnLock m_turn;
    Backlog m_backlog;
    const size_t m_worth_waking;  ///< what has to wait before a worker is woken, which takes long itself
    std::atomic<bool> m_asleep = false;
    std::string m_problem;
    uint64_t m_rest_until_ms = 0;  ///< after a problem
    uint64_t m_tick_due_ms = 0;

    std::atomic<bool> m_ending = false;
    std::mutex m_end_mutex;
    std::condition_variable m_end;
    bool m_has_ended = false;

    std::thread m_thread;
};

}  // namespace corvo::engine
