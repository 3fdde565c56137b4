#pragma once
// One thread of the data path: it captures its share of live traffic by itself, and does jobs for the calling
// thread.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "capture_lane.h"
#include "data_path.h"
#include "owned_fd.h"
#include "turn_lock.h"

namespace corvo::engine {

class Worker {
 public:
    /** Called with the part that is to be done. */
    using Job = std::function<void(unsigned part)>;

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

    /** `job` must outlive the call of `finish` that has to follow. */
    void start(const Job& job, unsigned part);
    /** Waits for the job. What it threw is returned. */
    std::exception_ptr finish();

    void ask_to_end();
    /** Whether it has ended by then. */
    bool ends_by(std::chrono::steady_clock::time_point time);
    /** What went wrong with its share of the traffic. Each problem is told once. Only during our turn. */
    std::string take_problem() { return std::exchange(m_problem, {}); }

 private:
    void work();
    bool do_job();
    void serve();
    void sleep();
    void wake() const;

    CaptureLane& m_lane;
    DataPath& m_path;
    OwnedFd m_wake;  ///< readable when there is a job, or it is to end
    TurnLock m_turn;
    std::string m_problem;
    uint64_t m_rest_until_ms = 0;  ///< after a problem
    uint64_t m_tick_due_ms = 0;

    const Job* m_job = nullptr;
    unsigned m_part = 0;
    std::exception_ptr m_failure;
    std::atomic<uint32_t> m_given = 0;  ///< number of jobs
    std::atomic<uint32_t> m_done = 0;   ///< likewise
    std::atomic<bool> m_asleep = false;

    std::atomic<bool> m_ending = false;
    std::mutex m_end_mutex;
    std::condition_variable m_end;
    bool m_has_ended = false;

    std::thread m_thread;
};

}  // namespace corvo::engine
