#pragma once
// Whose turn it is with a worker's live traffic: the worker's, again and again, or the engine's calling
// thread's.

#include <atomic>
#include <cstdint>
#include <mutex>

namespace corvo::engine {

/** A mutex that the calling thread doesn't have to wait for longer than the worker's current turn takes. */
class TurnLock {
 public:
    /** For the calling thread. */
    void lock() {
        m_waiting = 1;
        m_mutex.lock();
        m_waiting = 0;
        m_waiting.notify_one();
    }
    void unlock() { m_mutex.unlock(); }

    /** For the worker: lets the calling thread go first. */
    void lock_politely() {
        m_waiting.wait(1);
        m_mutex.lock();
    }

 private:
    std::mutex m_mutex;
    std::atomic<uint32_t> m_waiting = 0;
};

}  // namespace corvo::engine
