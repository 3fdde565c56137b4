#include "client/daemon_log.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "client/daemon.h"
#include "client/json_access.h"

namespace brumectl {

namespace {

constexpr std::streamoff MAX_TAIL_BYTES = 65536;
/** How each start begins. A log goes on where it was when a server takes the place of one that crashed. */
constexpr const char* BEGIN = "[server][INFO ] - Architecture:";
constexpr const char* ERROR_LEVEL = "][ERROR] - ";

}  // namespace

std::vector<std::string> last_log_lines(Daemon& daemon, unsigned count) {
    Json::Value params;
    params["type"] = "log";
    params["maxlines"] = count;
    std::vector<std::string> lines;
    const Json::Value result = daemon.call("log", params);
    for (const Json::Value& line : member_of(result, "log"))
        if (line.isString()) lines.push_back(line.asString());
    return lines;
}

std::vector<std::string> last_lines_of_file(const std::string& path) {
    std::error_code none;
    if (!std::filesystem::is_regular_file(path, none)) return {};  // a pipe would be waited for
    std::ifstream in(path);
    in.seekg(0, std::ios::end);
    in.seekg(std::max<std::streamoff>(0, in.tellg() - MAX_TAIL_BYTES));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
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

}  // namespace brumectl
