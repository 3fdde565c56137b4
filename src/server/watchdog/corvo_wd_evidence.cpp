#include "server/watchdog/corvo_wd_evidence.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "infra/corvo_logger.h"
#include "server/corvo_server_config.h"
#include "server/watchdog/corvo_sig_text.h"
#include "utils/clock.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

/** Above the standard descriptors: in a daemon, a line printed during the copy would land in the file. */
UniqueFd open_lifted(const std::string& path, int flags, unsigned int mode) {
    return UniqueFd(lift_fd(open(path.c_str(), flags | O_CLOEXEC, mode)));
}

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

bool make_dir(const std::string& dir) {
    if (mkdir(dir.c_str(), EVENTS_MODE) == 0 || errno == EEXIST) return true;
    CORVO_LOG(ERROR, COMP, "Creating dir for events '%s' failed [%s]", dir.c_str(), strerror(errno));
    return false;
}

void move_if_there(const std::string& src, const std::string& dst) {
    if (!exists(src) || rename(src.c_str(), dst.c_str()) == 0) return;
    CORVO_LOG(ERROR, COMP, "Failed to move '%s' -> '%s' [%s]", src.c_str(), dst.c_str(), strerror(errno));
}

/** A heartbeat or a stop may interrupt it where files are slow; the copy must not end there. */
ssize_t read_some(int fd, char* buffer, size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

/** A device or pipe might block, or never end. errno says why not. */
bool has_content(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return false;
    if (S_ISREG(info.st_mode)) return true;
    errno = EINVAL;
    return false;
}

enum class CopyResult { DONE, NOTHING_READ, WRITE_FAILED };

/** On failure errno says why; it is 0 for an empty source. */
CopyResult copy_content(int from, int to) {
    errno = 0;
    if (!has_content(from)) return CopyResult::NOTHING_READ;
    char buffer[1023];
    bool any = false;
    ssize_t got = 0;
    while ((got = read_some(from, buffer, sizeof buffer)) > 0) {
        any = true;
        if (!write_all(to, buffer, static_cast<size_t>(got))) return CopyResult::WRITE_FAILED;
    }
    return any ? CopyResult::DONE : CopyResult::NOTHING_READ;
}

}  // namespace

std::string get_events_dest_dir_name(const std::string& log_file) {
    const size_t slash = log_file.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : log_file.substr(0, slash);
    return dir + "/cvevents/";
}

std::string get_event_stamp() {
    const auto now = static_cast<time_t>(realtime_sec());
    tm local{};
    localtime_r(&now, &local);
    char stamp[20] = "";
    strftime(stamp, sizeof stamp, "%Y_%m_%d_%H_%M_%S", &local);
    return stamp;
}

std::string get_logfile_name(const std::string& log_file) {
    return log_file.substr(log_file.rfind('/') + 1);
}

void create_events_dir(const std::string& dir) {
    if (!make_dir(dir)) return;
    if (!open_lifted(dir + ".cveventsdummy", O_RDONLY | O_CREAT, EVENTS_MODE))
        CORVO_LOG(ERROR, COMP, "Creation of dummy file in events dir '%s' failed [%s]", dir.c_str(),
                  strerror(errno));
}

void collect_process_info(const std::string& log_file, const std::string& config_file,
                          const std::vector<std::string>& reports) {
    const std::string events = get_events_dest_dir_name(log_file);
    const std::string dest = events + get_event_stamp();
    if (!make_dir(events) || !make_dir(dest)) return;
    copy_config_file(config_file, dest);
    copy_file(log_file, dest + "/" + get_logfile_name(log_file), 0);
    for (const std::string& name : reports)
        move_if_there(events + "/" + name, dest + "/" + name);
    CORVO_LOG(INFO, COMP, "Info of termination event collected into %s", dest.c_str());
}

void copy_config_file(const std::string& config_file, const std::string& dest_dir) {
    std::string source = config_file;
    if (source.empty() && exists(get_default_conf_path())) source = get_default_conf_path();
    if (source.empty()) {
        CORVO_LOG(DEBUG, COMP, "No config file detected, skipping copying it");
        return;
    }
    const std::string dest = dest_dir + "/cvconfig.json";
    CORVO_LOG(DEBUG, COMP, "Copying config file '%s' -> '%s'", source.c_str(), dest.c_str());
    copy_file(source, dest, 0);
}

void copy_file(const std::string& src, const std::string& dst, unsigned int mode) {
    // Non-blocking: to open a pipe for reading would otherwise wait for its writer.
    const UniqueFd from = open_lifted(src, O_RDONLY | O_NONBLOCK, mode);
    if (!from) {
        CORVO_LOG(ERROR, COMP, "Copy file: failed to open '%s' [%s]", src.c_str(), strerror(errno));
        return;
    }
    const UniqueFd to = open_lifted(dst, O_WRONLY | O_CREAT | O_TRUNC, EVENTS_MODE);
    if (!to) {
        CORVO_LOG(ERROR, COMP, "Copy file: failed to open '%s' [%s]", dst.c_str(), strerror(errno));
        return;
    }
    switch (copy_content(from.get(), to.get())) {
        case CopyResult::DONE:
            return;
        case CopyResult::NOTHING_READ:
            CORVO_LOG(ERROR, COMP, "Copy file: failed reading '%s' [%s]", src.c_str(), strerror(errno));
            return;
        case CopyResult::WRITE_FAILED:
            CORVO_LOG(ERROR, COMP, "Copy file: failed writing '%s' [%s]", dst.c_str(), strerror(errno));
            return;
    }
}

}  // namespace corvo::server
