#include "client/wire/file_reader.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/wire/local_daemon.h"

namespace brumectl {

namespace {

/** CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH. */
constexpr uint64_t PASSING_CAPABILITIES = 1U << 1 | 1U << 2;

/** The ID that counts for files in a line of /proc/PID/status: the last of four numbers. */
gid_t file_system_id(std::istringstream& values) {
    gid_t id = 0;
    while (values >> id)
        continue;
    return id;
}

/** A line of a process's status; empty if there is none. */
std::string status_line(const std::string& process, const std::string& name) {
    std::ifstream file("/proc/" + process + "/status");
    for (std::string line; std::getline(file, line);)
        if (line.rfind(name, 0) == 0) return line;
    return {};
}

/** Empty if we aren't allowed to look. */
std::string process_namespace(const std::string& process) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/" + process + "/ns/pid", ignored).string();
}

pid_t pid_of(Daemon& daemon) {
    try {
        return static_cast<pid_t>(count_of(member_of(daemon.call("status"), "pid")));
    } catch (const ErrorReply&) {
        return 0;  // a problem of the engine; what follows can do without
    }
}

}  // namespace

std::optional<FileReader> FileReader::of_process(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    FileReader reader;
    bool is_daemon = false;
    for (std::string line; std::getline(file, line);) {
        std::istringstream values(line);
        std::string name;
        std::string process;
        uint64_t capabilities = 0;
        values >> name;
        if (name == "Name:" && values >> process) is_daemon = process == "brumecpd";
        if (name == "Uid:") reader.user = file_system_id(values);
        if (name == "Gid:") reader.groups.push_back(file_system_id(values));
        if (name == "Groups:")
            for (gid_t group = 0; values >> group;)
                reader.groups.push_back(group);
        if (name == "CapEff:" && values >> std::hex >> capabilities)
            reader.passes_modes = (capabilities & PASSING_CAPABILITIES) != 0;
    }
    if (!is_daemon || !reader.user || reader.groups.empty()) return std::nullopt;
    return reader;
}

std::optional<FileReader> FileReader::of_daemon(Daemon& daemon) {
    const Address& address = daemon.address();
    if (!on_this_machine(address)) return std::nullopt;
    struct stat socket = {};
    const bool has_owner = !address.tcp && stat(address.path.c_str(), &socket) == 0;
    FileReader owner{socket.st_uid, {socket.st_gid}, socket.st_uid == 0};
    if (has_owner && owner.user == geteuid()) return owner;  // no need to query the daemon
    std::optional<FileReader> process = of_process(pid_of(daemon));
    return has_owner && (!process || process->user != owner.user) ? std::move(owner) : std::move(process);
}

bool FileReader::sees_processes_as_we_do(Daemon& daemon) {
    const std::string process = std::to_string(pid_of(daemon));
    const std::string space = process_namespace(process);
    // A process with fewer rights can't inspect one with more.
    const std::string rights = status_line(process, "CapPrm:");
    return status_line(process, "Name:") == "Name:\tbrumecpd" && !space.empty() &&
           space == process_namespace("self") && rights == status_line("self", "CapPrm:");
}

bool FileReader::may(const struct stat& file, mode_t right) const {
    if (passes_modes) return true;
    if (user == file.st_uid) return (file.st_mode & right << 6) != 0;
    const bool is_in_group = std::find(groups.begin(), groups.end(), file.st_gid) != groups.end();
    return (file.st_mode & (is_in_group ? right << 3 : right)) != 0;
}

std::optional<FileReader::Barrier> FileReader::barrier(const std::string& path) const {
    for (size_t end = 1; end != std::string::npos; end = path.find('/', end + 1)) {
        Barrier folder{path.substr(0, end), true, {}};
        if (stat(folder.path.c_str(), &folder.info) != 0 || !may(folder.info, S_IXOTH)) return folder;
    }
    Barrier file{path, false, {}};
    if (stat(path.c_str(), &file.info) != 0 || !may(file.info, S_IROTH)) return file;
    return std::nullopt;
}

}  // namespace brumectl
