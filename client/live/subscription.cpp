#include "client/live/subscription.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/live/notification.h"
#include "client/text/temp_file.h"

namespace brumectl {

namespace {

constexpr size_t MAX_EVENT_BYTES = size_t{64} * 1024;
constexpr int LEAVE_TIMEOUT_MS = 1000;

Json::Value request(const char* op, const std::string& path) {
    Json::Value params = notifications_params("socket", op);
    params["socket"] = path;
    return params;
}

/** A socket of ours that nobody has open: left by a program that was killed. */
bool is_left_behind(const std::string& path) {
    struct stat info = {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISSOCK(info.st_mode) || info.st_uid != geteuid()) return false;
    corvo::UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address = Address::of_path(path).unix_address();
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
           errno == ECONNREFUSED;
}

}  // namespace

SubscriberSocket::SubscriberSocket(const std::string& path, long writer)
    : m_path(path), m_writer(writer), m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (is_left_behind(path)) unlink(path.c_str());
    const int on = 1;
    setsockopt(m_fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    bind_path();
}

SubscriberSocket::~SubscriberSocket() {
    unlink(m_path.c_str());
}

// The mode is set before the socket has a name, and the owner isn't changed at all: the folder may belong to
// the daemon's user, who could replace the socket with a link to somebody's file and be given that.
void SubscriberSocket::bind_path() const {
    sockaddr_un address = Address::of_path(m_path).unix_address();
    const bool ours = m_writer == 0 || m_writer == static_cast<long>(geteuid());
    fchmod(m_fd.get(), ours ? 0600 : 0622);
    mode_t before = umask(0);
    int rc = bind(m_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    int err = errno;
    umask(before);
    if (rc != 0) throw Failure("can't make the socket " + m_path + ": " + strerror(err));
}

bool SubscriberSocket::receive(std::string& text) const {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    for (;;) {
        text.resize(MAX_EVENT_BYTES);
        iovec into = {text.data(), text.size()};
        msghdr message = {};
        message.msg_iov = &into;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t size = recvmsg(m_fd.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        text.resize(size < 0 ? 0 : static_cast<size_t>(size));
        if (size < 0) return false;
        if (is_writers(message)) return true;
        interrupt::check();  // a stranger can't keep us here
    }
}

/** Whether, according to the kernel, the daemon's user or root has sent it. */
bool SubscriberSocket::is_writers(const msghdr& message) const {
    if (m_writer < 0) return true;
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_type != SCM_CREDENTIALS) return false;
    ucred sender = {};
    memcpy(&sender, CMSG_DATA(header), sizeof(sender));
    return sender.uid == 0 || static_cast<long>(sender.uid) == m_writer;
}

Subscription::Subscription(Daemon& daemon, Connect connect, const std::string& path, long writer)
    : m_connect(std::move(connect)), m_socket(path, writer) {
    try {
        add(daemon);
    } catch (...) {
        leave();  // an unanswered request may still be carried out
        throw;
    }
}

Subscription::~Subscription() {
    leave();
}

void Subscription::add(Daemon& daemon) {
    m_subscribed = true;
    try {
        daemon.call("notifications", request("add", m_socket.path()));
    } catch (const ErrorReply&) {
        // Most likely an earlier program left a subscription with the same path.
        daemon.call("notifications", request("delete", m_socket.path()));
        daemon.call("notifications", request("add", m_socket.path()));
    }
}

void Subscription::leave() const {
    if (!m_subscribed) return;
    const interrupt::Deferred uninterrupted;
    try {
        std::unique_ptr<Daemon> daemon = m_connect();
        daemon->set_timeout_ms(LEAVE_TIMEOUT_MS);
        daemon->call("notifications", request("delete", m_socket.path()));
    } catch (const std::exception&) {
        return;  // the daemon is gone, or too busy to reply; then the request is in its queue
    }
}

SubscriberPlaces subscriber_places(const Address& daemon) {
    std::vector<std::string> folders;
    if (const char* run = std::getenv("XDG_RUNTIME_DIR"); run != nullptr && *run == '/')
        folders.emplace_back(run);
    if (size_t slash = daemon.path.rfind('/'); slash != std::string::npos && daemon.path.front() == '/')
        folders.push_back(daemon.path.substr(0, slash));
    folders.push_back(temp_folder());
    SubscriberPlaces places;
    for (const std::string& folder : folders) {
        const std::string path = folder + "/brumectl-" + std::to_string(getpid()) + ".sock";
        places.trouble.clear();
        if (path.size() >= sizeof(sockaddr_un::sun_path))
            places.trouble = "$TMPDIR is too long for the path of a socket (107 bytes): " + path;
        else if (access(folder.c_str(), W_OK | X_OK) != 0)
            places.trouble = "no socket can be made in $TMPDIR, " + folder + ": " + strerror(errno);
        else
            places.paths.push_back(path);
    }
    return places;
}

long daemon_user(const Address& daemon) {
    struct stat info = {};
    if (daemon.tcp || stat(daemon.path.c_str(), &info) != 0) return -1;
    return static_cast<long>(info.st_uid);
}

}  // namespace brumectl
