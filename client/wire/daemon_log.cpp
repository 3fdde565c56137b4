#include "client/wire/daemon_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/wire/daemon.h"
#include "client/wire/local_daemon.h"
#include "utils/unique_fd.h"

namespace brumectl {

namespace {

/** How each start begins. A log goes on where it was when a server takes the place of one that crashed. */
constexpr const char* BEGIN = "[server][INFO ] - Architecture:";
constexpr const char* ERROR_LEVEL = "][ERROR] - ";

Json::Value ask(Daemon& daemon, unsigned count) {
    Json::Value params;
    params["type"] = "log";
    params["maxlines"] = count;
    return daemon.call("log", params);
}

/** Empty if it can't be reached from here. */
std::string reachable_file(Daemon& daemon) {
    try {
        const Json::Value status = daemon.call("status");
        const std::string path = string_of(member_of(status, "logfile"));
        const LocalDaemon local(daemon.address(), static_cast<pid_t>(count_of(member_of(status, "pid"))));
        return local.reaches(path) ? local.path_of(path) : "";
    } catch (const ErrorReply&) {
        return {};
    }
}

/** Where the last `count` lines that have an end begin, but not before `least`. `size` if nothing can be
 * read. */
off_t begin_of_lines(int fd, off_t least, off_t size, size_t count) {
    char block[65536];
    size_t ends = 0;
    for (off_t at = size; at > least;) {
        const off_t length = std::min<off_t>(sizeof(block), at - least);
        at -= length;
        if (pread(fd, block, static_cast<size_t>(length), at) != length) return size;
        for (off_t i = length; i > 0; --i)
            if (block[i - 1] == '\n' && ends++ == count) return at + i;
    }
    return least;
}

}  // namespace

std::vector<std::string> lines_of_log(const Json::Value& result) {
    std::vector<std::string> lines;
    for (const Json::Value& line : member_of(result, "log"))
        if (line.isString()) lines.push_back(line.asString());
    return lines;
}

std::vector<std::string> last_log_lines(Daemon& daemon, unsigned count) {
    return lines_of_log(ask(daemon, count));
}

Json::Value log_beyond_long_lines(Daemon& daemon, unsigned count) {
    const std::string file = reachable_file(daemon);
    // Read first: what is in the file already must be in the answer, too.
    const std::vector<std::string> written = last_lines_of_file(file);
    Json::Value result = ask(daemon, count);
    if (written.empty() || first_new_line(written, lines_of_log(result)) != std::string::npos) return result;
    result = Json::objectValue;
    result["log"] = Json::arrayValue;
    for (const std::string& line : last_lines_of_file(file, count, Daemon::MAX_REPLY_BYTES))
        result["log"].append(line);
    return result;
}

std::vector<std::string> last_lines_of_file(const std::string& path, size_t count, size_t max_bytes) {
    // A pipe would be waited for, and what the kernel makes up has no size.
    const corvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info = {};
    if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    const off_t least = std::max<off_t>(0, info.st_size - static_cast<off_t>(max_bytes));
    const off_t begin = begin_of_lines(file.get(), least, info.st_size, count);
    std::string text(static_cast<size_t>(info.st_size - begin), '\0');
    text.resize(
        static_cast<size_t>(std::max<ssize_t>(0, pread(file.get(), text.data(), text.size(), begin))));
    text.resize(text.rfind('\n') + 1);  // the rest is being written
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    const bool is_first_cut = begin > 0 && begin == least;
    if (is_first_cut && lines.size() > 1) lines.erase(lines.begin());
    return lines;
}

std::string last_error(const std::vector<std::string>& lines) {
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const size_t level = line->find(ERROR_LEVEL);
        if (level != std::string::npos) return line->substr(level + std::string(ERROR_LEVEL).size());
        if (line->find(BEGIN) != std::string::npos) break;
    }
    return {};
}

size_t first_new_line(const std::vector<std::string>& seen, const std::vector<std::string>& window) {
    if (seen.empty()) return 0;
    for (size_t end = window.size(); end > 0; --end) {
        size_t common = std::min(end, seen.size());
        auto last = window.begin() + static_cast<long>(end);
        if (std::equal(last - static_cast<long>(common), last, seen.end() - static_cast<long>(common)))
            return end;
    }
    return std::string::npos;
}

}  // namespace brumectl
