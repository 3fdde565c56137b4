#include "server/corvo_server_tasks.h"

#include <systemd/sd-daemon.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace corvo {

int WatchdogTask::execute() {
    sd_notify(0, "WATCHDOG=1\n");
    return m_period_ms;
}

int LeakDetector::execute() {
#ifdef __SANITIZE_ADDRESS__
    __lsan_do_recoverable_leak_check();
#endif
    return -1;
}

}  // namespace corvo
