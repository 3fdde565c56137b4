#include "server/watchdog/corvo_heartbeat.h"

#include <unistd.h>

#include <csignal>
#include <utility>

#include "infra/corvo_logger.h"
#include "utils/clock.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

constexpr int PERIOD_MS = 50;

}  // namespace

HeartBeat::HeartBeat(uint32_t hog_timeout_ms, pid_t parent, std::function<void()> on_orphaned)
    : m_send_interval_ms(hog_timeout_ms / 2 + 1),
      m_last_sent_ms(monotonic_ms()),
      m_parent(parent),
      m_on_orphaned(std::move(on_orphaned)) {}

int HeartBeat::execute() {
    if (monotonic_ms() - m_last_sent_ms < m_send_interval_ms) return PERIOD_MS;
    // Whoever adopted this process never asked for heartbeats, and the signal's default action is to kill.
    if (getppid() != m_parent) {
        CORVO_LOG(ERROR, COMP, "parent PID has changed, heartbeats won't be sent");
        m_on_orphaned();
        return -1;
    }
    kill(m_parent, SIGUSR2);
    m_last_sent_ms = monotonic_ms();
    return PERIOD_MS;
}

}  // namespace corvo::server
