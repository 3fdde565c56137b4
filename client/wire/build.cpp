#include "client/wire/build.h"

#include <algorithm>

#include "client/failure.h"
#include "client/wire/daemon.h"
#include "client/wire/daemon_log.h"

namespace brumectl {

namespace {

/**
 * The line is written at start. If more lines have been logged since, the build is determined another way.
 */
constexpr unsigned LINES = 1000;
constexpr const char* ATTRIBUTES = "[server][INFO ] - Attributes:";

std::optional<Build> build_in(const std::vector<std::string>& log) {
    auto tells = [](const std::string& line) { return line.find(ATTRIBUTES) != std::string::npos; };
    auto line = std::find_if(log.rbegin(), log.rend(), tells);
    if (line == log.rend()) return std::nullopt;
    const std::string words = line->substr(line->find(ATTRIBUTES));
    return Build{.slave_mode = words.find(", slave") != std::string::npos,
                 .bare_metal = words.find(", bare metal") != std::string::npos};
}

}  // namespace

std::string Build::text() const {
    return std::string(slave_mode ? "daemon in slave mode" : "standalone daemon") +
           (bare_metal ? ", for bare metal" : "");
}

Build packaged_build() {
    return {.slave_mode = BRUMECPD_SLAVE_MODE, .bare_metal = BRUMECPD_BARE_METAL};
}

std::optional<Build> build_of(Daemon& daemon) {
    Build build = packaged_build();
    try {
        if (auto told = build_in(last_log_lines(daemon, LINES))) return told;
        // Never attaches anything: slave mode is checked before the parameters, and the only parameter
        // is missing.
        daemon.call("attach");
    } catch (const ErrorReply& e) {
        const std::string text = e.what();
        build.slave_mode = text.find("slave mode") != std::string::npos;
        if (build.slave_mode || text == "field 'intf' is missing") return build;
    }
    return std::nullopt;
}

}  // namespace brumectl
