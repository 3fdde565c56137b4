#pragma once
// Channels over Unix datagram sockets: one message is one datagram. A connected pair leads out of signal
// context: the handler pushes into one end, the scheduler serves the other.

#include <memory>
#include <string>

#include "infra/corvo_channel.h"

namespace corvo {

class SocketChannel : public Channel {
 public:
    /**
     * The caller keeps ownership of the descriptor. `timeout_ms` applies when the event re-arms itself; 0
     * means no timer.
     */
    SocketChannel(const std::string& name, int fd, handler_cb handler, unsigned int timeout_ms);

    std::string get_name() const override { return m_name; }
    /** Serves all waiting messages. A timeout without a handler is a programming error and throws. */
    EventRC do_work(const EventExpireReason& reason) override;

    /** One system call and no heap use, so signal handlers may call it. Only CHANNEL_ERROR is logged. */
    state_e push(const std::string& msg) const override;
    state_e pop(std::string& msg, int timeout_ms) const override;
    void set_handler(handler_cb handler) override { m_handler = std::move(handler); }
    handler_cb get_handler() override { return m_handler; }

    /** Returns the system call's result; errno is set accordingly. */
    virtual long _send(int fd, const std::string& msg) const;
    /** Likewise. Sizes its buffer by the datagram, so there is no length limit. */
    virtual long _recv(int fd, std::string& msg) const;
    /** Signals don't prolong the wait. */
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
    /** Throws corvo::Exception if no sockets can be created. */
    explicit SocketChannelPair(const std::string& name);

    const std::shared_ptr<SocketChannel>& first() const { return m_first; }
    const std::shared_ptr<SocketChannel>& second() const { return m_second; }

 private:
    std::shared_ptr<SocketChannel> m_first;
    std::shared_ptr<SocketChannel> m_second;
};

}  // namespace corvo
