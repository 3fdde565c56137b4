#pragma once
// Channels over Unix datagram sockets: one message is one datagram. A connected pair is the bridge out of
// signal context: the handler pushes into one end, the scheduler serves the other.

#include <memory>
#include <string>

#include "infra/corvo_channel.h"

namespace corvo {

class SocketChannel : public Channel {
 public:
    /** The descriptor stays the caller's. `timeout_ms` is used when the event re-arms itself; 0: no timer. */
    SocketChannel(const std::string& name, int fd, handler_cb handler, unsigned int timeout_ms);

    std::string get_name() const override { return m_name; }
    /** Serves all messages that wait. A time-out without a handler is a fault of the program and throws. */
    EventRC do_work(const EventExpireReason& reason) override;

    /** One system call and no heap, so a signal handler may call it; only CHANNEL_ERROR is logged. */
    state_e push(const std::string& msg) const override;
    state_e pop(std::string& msg, int timeout_ms) const override;
    void set_handler(handler_cb handler) override { m_handler = std::move(handler); }
    handler_cb get_handler() override { return m_handler; }

    /** What the system call gave, errno included. */
    virtual long _send(int fd, const std::string& msg) const;
    /** The same; sizes its buffer by the datagram, so there is no limit. */
    virtual long _recv(int fd, std::string& msg) const;
    /** Signals don't lengthen the wait. */
    virtual state_e _poll(int fd, int timeout_ms) const;

 private:
    EventRC serve_waiting();

    handler_cb m_handler;
    unsigned int m_timeout_ms;
    std::string m_name;
};

/** Two connected channels without handlers. Each owns its descriptor. */
class SocketChannelPair {
 public:
    /** @throws corvo::Exception when the system gives no sockets */
    explicit SocketChannelPair(const std::string& name);

    const std::shared_ptr<SocketChannel>& first() const { return m_first; }
    const std::shared_ptr<SocketChannel>& second() const { return m_second; }

 private:
    std::shared_ptr<SocketChannel> m_first;
    std::shared_ptr<SocketChannel> m_second;
};

}  // namespace corvo
