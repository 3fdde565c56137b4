#pragma once
// An event on a counter of the kernel: readable once it was raised, writable unless it is full.

#include <sys/eventfd.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "infra/corvo_event.h"

namespace test {

class FdEvent : public corvo::Event {
 public:
    using work = std::function<corvo::EventRC(FdEvent&, corvo::EventExpireReason)>;

    explicit FdEvent(work fn = {}) : m_work(std::move(fn)) { m_fd = eventfd(0, EFD_NONBLOCK); }
    ~FdEvent() override { close(m_fd); }

    std::string get_name() const override { return "fd event"; }
    corvo::EventRC do_work(const corvo::EventExpireReason& reason) override {
        ++runs;
        return m_work ? m_work(*this, reason) : done();
    }

    void raise() { eventfd_write(m_fd, 1); }
    void fill() { eventfd_write(m_fd, UINT64_MAX - 1); }
    void drain() {
        eventfd_t ignored;
        eventfd_read(m_fd, &ignored);
    }

    using Event::done;
    using Event::resched;
    int runs = 0;

 private:
    work m_work;
};

}  // namespace test
