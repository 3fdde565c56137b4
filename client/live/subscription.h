#pragma once
// A socket of this program that the daemon sends its events to. Nothing of it stays behind: the destructor
// ends the subscription and removes the socket's file, whether or not the daemon is still there.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/wire/address.h"
#include "client/wire/daemon.h"
#include "utils/unique_fd.h"

namespace brumectl {

/** A datagram socket bound to a path of its own, which is removed at the end. */
class SubscriberSocket {
 public:
    /**
     * Takes the place of a socket that nobody listens at any more. `writer` is the user whose datagrams,
     * beside root's, are received, or -1 if that is unknown: then everybody's. @throws Failure
     */
    SubscriberSocket(const std::string& path, long writer);
    SubscriberSocket(const SubscriberSocket&) = delete;
    SubscriberSocket& operator=(const SubscriberSocket&) = delete;
    ~SubscriberSocket();

    const std::string& path() const { return m_path; }
    int fd() const { return m_fd.get(); }
    /** The next datagram that waits; false if there's none. Longer ones than any event are cut. */
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
     * Subscribed when it returns. `connect` gives a connection of its own for taking leave, since the
     * program's may be waiting for an answer then. @throws Failure, Interrupted
     */
    Subscription(Daemon& daemon, Connect connect, const std::string& path, long writer);
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription();

    const SubscriberSocket& socket() const { return m_socket; }
    /** The daemon that knew of it is gone. */
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
    std::string trouble = {};  ///< why there's none in $TMPDIR; empty: there is one
};

/** Where to try, best first: a path's folder is writable for us, which doesn't mean that the daemon gets
 * there. */
SubscriberPlaces subscriber_places(const Address& daemon);
/** The user that the daemon runs as; -1 if that can't be told. */
long daemon_user(const Address& daemon);

}  // namespace brumectl
