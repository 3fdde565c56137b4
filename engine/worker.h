#pragma once
// One thread of the data path: it captures, classifies and forgets its share of live traffic by itself.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "capture_lane.h"
#include "data_path.h"
#include "owned_fd.h"
#include "turn_lock.h"

namespace corvo::engine {

class Worker {
 public:
    /**
     * Starts a thread with this name, of at most 15 bytes. `lane` and `path` must outlive this; nobody may
     * touch them without `turn`. Throws Error if there can't be a thread.
     */
    Worker(const std::string& name, CaptureLane& lane, DataPath& path);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    /** Waits for the end, however long it takes. */
    ~Worker();

    TurnLock& turn() { return m_turn; }

    void ask_to_end();
    /** Whether it has ended by then. */
    bool ends_by(std::chrono::steady_clock::time_point time);
    /** What went wrong with its share of the traffic. Each problem is told once. Only during our turn. */
    std::string take_problem() { return std::exchange(m_problem, {}); }

 private:
    void work();
    void serve();
    void sleep();

    CaptureLane& m_lane;
    DataPath& m_path;
    OwnedFd m_wake;  ///< readable when it is to end
    TurnLock m_turn;
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
