#pragma once
// The server's own two small tasks.

#include "infra/corvo_task.h"

namespace corvo {

/** Tells the service manager, if there is one, that the main loop is alive. */
class WatchdogTask : public Task {
 public:
    explicit WatchdogTask(int period_ms) : m_period_ms(period_ms) {}
    int execute() override;
    std::string get_name() const override { return "watchdog"; }

 private:
    int m_period_ms;
};

/** In a sanitizer build, checks once for leaked memory; the daemon continues. */
class LeakDetector : public Task {
 public:
    LeakDetector() : Task(0) {}
    int execute() override;
    std::string get_name() const override { return "LeakDetector"; }
};

}  // namespace corvo
