#include "client/live/stale_subscribers.h"

#include <sys/socket.h>

#include <cerrno>

#include "client/failure.h"
#include "client/live/notification.h"
#include "client/text/json_access.h"
#include "client/wire/local_daemon.h"
#include "utils/unique_fd.h"

namespace brumectl {

namespace {

enum class Listener { THERE, GONE, UNKNOWN };

Listener look_for_listener(const std::string& path) {
    Address address;
    try {
        address = Address::of_path(path);
    } catch (const Usage&) {
        return Listener::UNKNOWN;
    }
    corvo::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un peer = address.unix_address();
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) == 0)
        return Listener::THERE;
    return errno == ENOENT || errno == ENOTDIR || errno == ECONNREFUSED ? Listener::GONE : Listener::UNKNOWN;
}

}  // namespace

CleanUp remove_stale_subscribers(Daemon& daemon) {
    const pid_t pid = static_cast<pid_t>(count_of(member_of(daemon.call("status"), "pid")));
    const LocalDaemon local(daemon.address(), pid);
    CleanUp done;
    for (const Json::Value& subscriber :
         member_of(daemon.call("notifications", notifications_params("socket", "ls")), "ls")) {
        const std::string name = string_of(member_of(subscriber, "name"));
        Listener listener = local.reaches(name) ? look_for_listener(local.path_of(name)) : Listener::UNKNOWN;
        if (listener == Listener::GONE) {
            Json::Value params = notifications_params("socket", "delete");
            params["socket"] = name;
            daemon.call("notifications", params);
        }
        (listener == Listener::GONE    ? done.removed
         : listener == Listener::THERE ? done.kept
                                       : done.unknown)
            .push_back(name);
    }
    return done;
}

}  // namespace brumectl
