// The cost of dispatching one ready descriptor to its event and registering it again, as every request does.

#include <benchmark/benchmark.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"

namespace {

/** Always ready. */
class ReadyEvent : public corvo::Event {
 public:
    ReadyEvent() { m_fd = eventfd(1, EFD_NONBLOCK); }
    ~ReadyEvent() override { close(m_fd); }
    std::string get_name() const override { return "ready event"; }
    corvo::EventRC do_work(const corvo::EventExpireReason&) override {
        ++runs;
        return resched(timeout_ms);
    }

    unsigned int timeout_ms = 0;
    int64_t runs = 0;
};

void dispatch(benchmark::State& state) {
    corvo::Logger::open_logger(corvo::Logger::LOGGER_SYSLOG, corvo::Logger::INFO, "");
    corvo::Scheduler sched;
    const auto ev = std::make_shared<ReadyEvent>();
    ev->timeout_ms = static_cast<unsigned int>(state.range(0));
    sched.add(ev, corvo::EVENT_STATE_READ, ev->timeout_ms);
    for (auto _ : state)
        sched.step();
    state.SetItemsProcessed(ev->runs);
    corvo::Logger::close_logger();
}
BENCHMARK(dispatch)->ArgName("timeout_ms")->Arg(0)->Arg(10000);

}  // namespace
