#include "client/live/machine.h"

#include <unistd.h>

#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "client/text/json_access.h"
#include "client/wire/local_daemon.h"

namespace brumectl {

namespace {

constexpr uint64_t KIB = 1024;

/** Only if this machine has as much memory as the daemon's. */
std::optional<uint64_t> memory_in_use(uint64_t total_mib) {
    std::ifstream file("/proc/meminfo");
    std::string name;
    uint64_t total_kib = 0;
    uint64_t available_kib = 0;
    for (uint64_t value = 0; file >> name >> value;) {
        if (name == "MemTotal:") total_kib = value;
        if (name == "MemAvailable:") available_kib = value;
        file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    if (total_kib / KIB != total_mib || available_kib == 0 || available_kib > total_kib) return {};
    return (total_kib - available_kib) * KIB;
}

/** For the process with this number, if it is a daemon: a container's number may be another process here. */
std::optional<double> processor_time(uint64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    const std::string name = "(brumecpd) ";
    if (!std::getline(file, text) || text.find(name) == std::string::npos) return {};
    constexpr int FIELDS_BEFORE = 11;  // between the name and the time in user mode
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string ignored;
    for (int i = 0; i < FIELDS_BEFORE; ++i)
        fields >> ignored;
    uint64_t user = 0;
    uint64_t system = 0;
    if (!(fields >> user >> system)) return {};
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

Machine Machine::look(const Address& daemon, const Json::Value& status) {
    if (!on_this_machine(daemon)) return {};
    return {memory_in_use(count_of(member_of(status, {"mem", "total_mem"}))),
            processor_time(count_of(member_of(status, "pid")))};
}

}  // namespace brumectl
