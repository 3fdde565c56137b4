#include "server/watchdog/corvo_wd_evidence.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_sig_text.h"
#include "server/watchdog/corvo_wd_events_dir.h"
#include "utils/clock.h"
#include "utils/trusted_open.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

bool usable(const EventsDir& dir) {
    if (dir) return true;
    CORVO_LOG(ERROR, COMP, "Creating dir for events '%s' failed [%s]", dir.path().c_str(),
              strerror(dir.error()));
    return false;
}

void move_if_there(const EventsDir& from, const std::string& name, const EventsDir& to) {
    if (!from.has(name) || from.move(name, to)) return;
    CORVO_LOG(ERROR, COMP, "Failed to move '%s/%s' -> '%s/%s' [%s]", from.path().c_str(), name.c_str(),
              to.path().c_str(), name.c_str(), strerror(errno));
}

/** A heartbeat or a stop may interrupt reads of slow files; the copy must not end there. */
ssize_t read_some(int fd, char* buffer, size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

/** A device or pipe might block, or never end. Sets errno to the reason if it has none. */
bool has_content(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return false;
    if (S_ISREG(info.st_mode)) return true;
    errno = EINVAL;
    return false;
}

enum class CopyResult { DONE, NOTHING_READ, WRITE_FAILED };

/**
 * Lets the kernel copy, because a log of several gigabytes would otherwise delay the service for
 * minutes. Copies what it can and leaves the rest, or the failure, to the caller's read loop. True if
 * anything was copied.
 */
bool copy_in_kernel(int from, int to) {
    constexpr size_t CHUNK = size_t{1} << 30;
    bool any = false;
    ssize_t copied = 0;
    while ((copied = copy_file_range(from, nullptr, to, nullptr, CHUNK, 0)) > 0 ||
           (copied < 0 && errno == EINTR))
        any = any || copied > 0;
    return any;
}

/** On failure, errno is set; it is 0 for an empty source. */
CopyResult copy_content(int from, int to) {
    errno = 0;
    if (!has_content(from)) return CopyResult::NOTHING_READ;
    bool any = copy_in_kernel(from, to);
    errno = 0;
    char buffer[1023];
    ssize_t got = 0;
    while ((got = read_some(from, buffer, sizeof buffer)) > 0) {
        any = true;
        if (!write_all(to, buffer, static_cast<size_t>(got))) return CopyResult::WRITE_FAILED;
    }
    return any ? CopyResult::DONE : CopyResult::NOTHING_READ;
}

/** Calls `open_dst` once the source is open; the texts name the files in messages. */
template <typename Open>
void copy(const std::string& src, unsigned int mode, const std::string& dst, Open&& open_dst) {
    // Non-blocking, because opening a pipe would wait for its writer. Above the standard descriptors, because
    // in a daemon a line printed during the copy would end up in the file.
    const UniqueFd from = open_unless_trap(src, O_RDONLY | O_NONBLOCK, mode);
    if (!from) {
        CORVO_LOG(ERROR, COMP, "Copy file: failed to open '%s' [%s]", src.c_str(), strerror(errno));
        return;
    }
    const UniqueFd to = open_dst();
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

constexpr int REPLACE = O_WRONLY | O_CREAT | O_TRUNC;

void copy_into(const std::string& src, const EventsDir& dir, const std::string& name) {
    copy(src, 0, dir.path() + "/" + name, [&] { return dir.open(name, REPLACE); });
}

void copy_config_file(const std::string& config_file, const EventsDir& dest) {
    if (config_file.empty()) {
        CORVO_LOG(DEBUG, COMP, "No config file detected, skipping copying it");
        return;
    }
    CORVO_LOG(DEBUG, COMP, "Copying config file '%s' -> '%s/cvconfig.json'", config_file.c_str(),
              dest.path().c_str());
    copy_into(config_file, dest, "cvconfig.json");
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
    const EventsDir events(dir);
    if (!usable(events)) return;
    if (!events.open(".cveventsdummy", O_RDONLY | O_CREAT))
        CORVO_LOG(ERROR, COMP, "Creation of dummy file in events dir '%s' failed [%s]", dir.c_str(),
                  strerror(errno));
}

void collect_process_info(const std::string& log_file, const std::string& config_file,
                          const std::vector<std::string>& reports) {
    const EventsDir events(get_events_dest_dir_name(log_file));
    if (!usable(events)) return;
    const EventsDir dest(events, get_event_stamp());
    if (!usable(dest)) return;
    copy_config_file(config_file, dest);
    copy_into(log_file, dest, get_logfile_name(log_file));
    for (const std::string& name : reports)
        move_if_there(events, name, dest);
    CORVO_LOG(INFO, COMP, "Info of termination event collected into %s", dest.path().c_str());
}

void copy_file(const std::string& src, const std::string& dst, unsigned int mode) {
    copy(src, mode, dst,
         [&] { return UniqueFd(lift_fd(open(dst.c_str(), REPLACE | O_CLOEXEC, EVENTS_MODE))); });
}

}  // namespace corvo::server
