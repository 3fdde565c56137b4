#pragma once
// What calls the tick of a loaded engine: a timed task, and an event whenever the library asks for one.

#include <cstdint>
#include <string>

#include "infra/corvo_event.h"
#include "infra/corvo_task.h"

namespace corvo::server {

class Engine;

/** The timed tick. The library's result is the delay until the next one. */
class EngineTask : public Task {
 public:
    explicit EngineTask(Engine* engine) : Task(0), m_engine(engine) {}
    int execute() override;
    std::string get_name() const override { return "Corvo Tick"; }
    int64_t hog_timeout_ms() const override { return 0; }

 private:
    Engine* m_engine;
};

/**
 * An extra tick whenever the library's descriptor is readable. The library keeps ownership of the descriptor.
 */
class EngineEvent : public Event {
 public:
    EngineEvent(int fd, Engine* engine) : m_engine(engine) { m_fd = fd; }
    std::string get_name() const override { return "Corvo Event"; }
    EventRC do_work(const EventExpireReason& reason) override;

 private:
    Engine* m_engine;
};

}  // namespace corvo::server
