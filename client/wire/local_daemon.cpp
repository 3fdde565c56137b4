#include "client/wire/local_daemon.h"

#include <unistd.h>

#include <fstream>

namespace brumectl {

namespace {

/** Empty if the link can't be read. */
std::string link_target(const std::string& path) {
    char target[4096];
    ssize_t len = readlink(path.c_str(), target, sizeof(target));
    return len > 0 ? std::string(target, static_cast<size_t>(len)) : std::string();
}

}  // namespace

bool on_this_machine(const Address& address) {
    return address.is_local();
}

LocalDaemon::LocalDaemon(const Address& address, pid_t pid) : m_same_files(on_this_machine(address)) {
    if (!m_same_files || pid <= 0) return;
    m_proc = "/proc/" + std::to_string(pid);
    if (!link_target(m_proc + "/cwd").empty()) m_cwd = m_proc + "/cwd";
    const std::string mounts = link_target(m_proc + "/ns/mnt");
    if (!mounts.empty())
        m_same_files = mounts == link_target("/proc/self/ns/mnt");
    else if (address.tcp)
        m_same_files = false;  // a port may be forwarded from another machine
}

bool LocalDaemon::reaches(const std::string& path) const {
    if (path.empty()) return false;
    return path.front() == '/' ? m_same_files : visible();
}

std::string LocalDaemon::path_of(const std::string& path) const {
    return path.front() == '/' ? path : m_cwd + "/" + path;
}

std::string LocalDaemon::engine_folder() const {
    if (!visible()) return {};
    std::ifstream maps(m_proc + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const size_t begin = line.find('/');
        for (const char* library : {"/libcvcp_u.so", "/libcvcp_k.so"})
            if (size_t end = line.rfind(library); begin != std::string::npos && end != std::string::npos)
                return line.substr(begin, end - begin);
    }
    return {};
}

}  // namespace brumectl
