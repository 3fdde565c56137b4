// The least server that answers like the daemon with the same JSON library: one process, epoll, no time-outs,
// no checks.
//   rpc_floor unix PATH | tcp PORT
#include <json/json.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <sys/un.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "long_text.h"

namespace {

const std::string LONG_TEXT = long_text(8192);

Json::Value uptime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Json::Int64(now.tv_sec);
}

Json::Value ping() {
    Json::Value out;
    out["ts"] = uptime();
    return out;
}

Json::Value status() {
    struct sysinfo machine {};
    sysinfo(&machine);
    utsname kernel{};
    uname(&kernel);
    long pages = 0, resident = 0;
    if (FILE* file = fopen("/proc/self/statm", "r")) {
        if (fscanf(file, "%ld %ld", &pages, &resident) != 2) pages = 0;
        fclose(file);
    }
    Json::Value out;
    out["arch"] = "x86_64 @ 64 bit";
    out["attached"] = Json::Value(Json::arrayValue);
    out["dps"].append("dp0");
    out["kernel"] = kernel.release;
    out["logfile"] = "/tmp/brumecpd.log";
    Json::Value& memory = out["mem"];
    memory["free_mem"] = Json::UInt64(machine.freeram >> 20);
    memory["total_mem"] = Json::UInt64(machine.totalram >> 20);
    memory["process"]["phy_mem"]["current"] = memory["process"]["phy_mem"]["max"] =
        Json::Int64(resident / 256);
    memory["process"]["virt_mem"]["current"] = memory["process"]["virt_mem"]["max"] =
        Json::Int64(pages / 256);
    out["mode"] = "userspace";
    out["pid"] = getpid();
    out["state"] = "activated";
    out["uptime"] = uptime();
    out["version"] = "bench";
    return out;
}

std::string answer(const char* begin, const char* end) {
    Json::Value request, reply;
    if (!Json::Reader().parse(begin, end, request, false)) return "{}\n";
    const std::string method = request["method"].asString();
    reply["jsonrpc"] = "2.0";
    reply["id"] = request["id"];
    reply["ms"] = 0;
    reply["result"] = method == "ping" ? ping() : method == "status" ? status() : LONG_TEXT;
    reply["fmt"]["type"] = "plain";
    // Told before the result, so that it is written twice.
    reply["fmt"]["size"] = Json::UInt64(Json::FastWriter().write(reply["result"]).size());
    return Json::FastWriter().write(reply);
}

int listener(const std::string& kind, const char* where) {
    sockaddr_un path{AF_UNIX, {}};
    sockaddr_in port{};
    port.sin_family = AF_INET;
    port.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool tcp = kind == "tcp";
    if (tcp) {
        port.sin_port = htons(static_cast<uint16_t>(strtoul(where, nullptr, 10)));
    } else {
        strncpy(path.sun_path, where, sizeof path.sun_path - 1);
    }
    const int fd = socket(tcp ? AF_INET : AF_UNIX, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_NONBLOCK, 0);
    const int yes = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const auto* address = tcp ? reinterpret_cast<sockaddr*>(&port) : reinterpret_cast<sockaddr*>(&path);
    if (bind(fd, address, tcp ? sizeof port : sizeof path) < 0 || (tcp && listen(fd, 64) < 0)) {
        perror("rpc_floor");
        exit(1);
    }
    return fd;
}

void serve_datagram(int fd) {
    static char text[65536];
    sockaddr_un peer{};
    socklen_t size = sizeof peer;
    const ssize_t got = recvfrom(fd, text, sizeof text, 0, reinterpret_cast<sockaddr*>(&peer), &size);
    if (got <= 0) return;
    const std::string reply = answer(text, text + got);
    sendto(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&peer), size);
}

/** A request of the comparison comes in one piece, and its reply fits into the socket's buffer. */
void serve_connection(int fd) {
    char text[65536];
    const ssize_t got = read(fd, text, sizeof text);
    if (got > 0) {
        const std::string reply = answer(text, text + got);
        if (write(fd, reply.data(), reply.size()) < 0) perror("rpc_floor");
    }
    close(fd);
}

void watch(int poller, int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const bool tcp = std::string("tcp") == argv[1];
    const int listening = listener(argv[1], argv[2]), poller = epoll_create1(0);
    watch(poller, listening);
    for (epoll_event event{}; epoll_wait(poller, &event, 1, -1) == 1;) {
        if (!tcp) {
            serve_datagram(listening);
        } else if (event.data.fd != listening) {
            serve_connection(event.data.fd);
        } else if (const int fd = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK); fd >= 0) {
            watch(poller, fd);
        }
    }
    return 1;
}
