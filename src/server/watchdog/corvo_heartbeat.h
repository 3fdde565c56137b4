#pragma once
// The child's sign of life: a signal to the parent slightly less often than twice per hog timeout. It runs on
// the scheduler like any other task, so whatever keeps the scheduler from running also stops the heartbeats.

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

#include "infra/corvo_task.h"

namespace corvo::server {

class HeartBeat : public Task {
 public:
    /** Calls `on_orphaned` once, when `parent` turns out to be gone. The task then ends. */
    HeartBeat(uint32_t hog_timeout_ms, pid_t parent, std::function<void()> on_orphaned);

    int execute() override;
    std::string get_name() const override { return "HeartBeat"; }
    uint32_t send_interval_ms() const { return m_send_interval_ms; }

 private:
    uint32_t m_send_interval_ms;
    uint64_t m_last_sent_ms;
    pid_t m_parent;
    std::function<void()> m_on_orphaned;
};

}  // namespace corvo::server
