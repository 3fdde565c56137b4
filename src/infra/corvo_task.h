#pragma once
// Timed work for the scheduler. Engine libraries may have their own tasks, so fields and virtual functions
// must stay in this order.

#include <cstdint>
#include <string>

namespace corvo {

class Task {
 public:
    static constexpr int32_t DEFAULT_HOG_TIMEOUT_MS = 300;

    explicit Task(int32_t hog_timeout_ms = DEFAULT_HOG_TIMEOUT_MS);
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    virtual ~Task();

    /** Returns the delay until the next run in milliseconds, or a negative value to end the task. */
    virtual int execute() = 0;
    virtual std::string get_name() const = 0;
    /** Time budget of a run in milliseconds; 0 means never reported as a hog. */
    virtual int64_t hog_timeout_ms() const;

    /** Due time in milliseconds of the monotonic clock. Set by the scheduler. */
    uint64_t m_when = 0;

 protected:
    int32_t m_hog_timeout_ms;
};

}  // namespace corvo
