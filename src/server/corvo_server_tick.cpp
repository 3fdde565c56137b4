#include "server/corvo_server_tick.h"

#include "server/corvo_server_loader.h"

namespace corvo::server {
namespace {

constexpr int NO_PREFERENCE_DELAY_MS = 1000;

}  // namespace

int EngineTask::execute() {
    if (m_engine->state() == Engine::STATE_UNLOADED) return NO_PREFERENCE_DELAY_MS;
    const int delay_ms = m_engine->tick();
    return delay_ms >= 0 ? delay_ms : NO_PREFERENCE_DELAY_MS;
}

EventRC EngineEvent::do_work(const EventExpireReason&) {
    if (m_engine->state() != Engine::STATE_UNLOADED) m_engine->tick();
    return resched(0u);
}

}  // namespace corvo::server
