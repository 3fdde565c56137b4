#pragma once
// A socket of this program to which the daemon sends its events. Nothing is left behind: the destructor ends
// the subscription and removes the socket's file, whether or not the daemon is still there.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/wire/address.h"
#include "client/wire/daemon.h"
#include "utils/unique_fd.h"

namespace brumectl {

/** A datagram socket bound to its own path, which is removed at the end. */
class SubscriberSocket {
 public:
    /**
     * Replaces a socket on which nobody listens any more. Only datagrams from the user `writer` and root are
     * received; -1, for unknown, accepts everybody's. Throws Failure.
     */
    SubscriberSocket(const std::string& path, long writer);
    SubscriberSocket(const SubscriberSocket&) = delete;
    SubscriberSocket& operator=(const SubscriberSocket&) = delete;
    ~SubscriberSocket();

    const std::string& path() const { return m_path; }
    int fd() const { return m_fd.get(); }
    /**
     * Reads the next waiting datagram; false if there is none. Datagrams longer than any event are truncated.
     */
    bool receive(std::string& text) const;

 private:
    void bind_path() const;
    bool is_writers(const msghdr& message) const;

    std::string m_path;
    long m_writer;
    corvo::UniqueFd m_fd;
};

class Subscription {
 public:
    using Connect = std::function<std::unique_ptr<Daemon>()>;

    /**
     * Has subscribed when it returns. `connect` provides a separate connection for unsubscribing, since the
     * program's own may be waiting for a reply then. Throws Failure, Interrupted.
     */
    Subscription(Daemon& daemon, Connect connect, const std::string& path, long writer);
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription();

    const SubscriberSocket& socket() const { return m_socket; }
    /** Call if the daemon that had the subscription is gone. */
    void forget() { m_subscribed = false; }

 private:
    void add(Daemon& daemon);
    void leave() const;

    Connect m_connect;
    SubscriberSocket m_socket;
    bool m_subscribed = false;
};

struct SubscriberPlaces {
    std::vector<std::string> paths = {};
    std::string trouble = {};  ///< why there is none in $TMPDIR; empty if there is one
};

/** Where to try, best first. We can write to a path's folder, but the daemon may not be able to reach it. */
SubscriberPlaces subscriber_places(const Address& daemon);
/** The user that the daemon runs as; -1 if unknown. */
long daemon_user(const Address& daemon);

}  // namespace brumectl
