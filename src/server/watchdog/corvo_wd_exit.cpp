#include "server/watchdog/corvo_wd_exit.h"

#include <sys/wait.h>
#include <cerrno>

#include <csignal>

#include "server/watchdog/corvo_sig_text.h"
#include "server/watchdog/corvo_wd_signals.h"

namespace corvo::server {
namespace {

constexpr const char* BANNER[] = {
    "",
    "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!",
    "    PROCESS TERMINATION OCCURRED    ",
    "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!",
    "",
};

int exit_code(int status) {
    return WEXITSTATUS(status);
}

bool by_signal(int status) {
    return WTERMSIG(status) != 0;
}

void add_signal_info(std::vector<StatusLine>& lines, int status, bool not_responding) {
    if (not_responding)
        lines.push_back(
            {Logger::ERROR, "Process killed by watchdog since not responding (HOG details may still exist)"});
    char name[30] = "";
    unsigned int left = sizeof name - 1;
    if (signum_to_signame(WTERMSIG(status), name, left))
        lines.push_back({Logger::ERROR, "Terminated by signal [" + std::string(name) + "]"});
    lines.push_back({Logger::ERROR, WCOREDUMP(status) ? "Core dump created" : "Core dump not created"});
    if (WTERMSIG(status) == SIGKILL)
        lines.push_back({Logger::INFO, "Detailed report was not created due to brutal kill of process"});
}

}  // namespace

bool wait_tells_end(int result, int error) {
    return result > 0 || (result < 0 && error != EINTR);
}

bool child_exited_normally(int status, int stop_cause, bool not_responding) {
    if (stop_cause != STOP_NONE) return true;
    if (not_responding) return false;
    return !by_signal(status) && exit_code(status) == 0;
}

int parent_exit_code(int status, bool normal) {
    if (!by_signal(status) && exit_code(status) != 0) return exit_code(status);
    return normal ? 0 : 1;
}

std::vector<StatusLine> status_info(int status, bool not_responding) {
    if (!not_responding && !by_signal(status) && exit_code(status) == 0)
        return {{Logger::INFO, "Process terminated normally"}};
    std::vector<StatusLine> lines;
    for (const char* text : BANNER)
        lines.push_back({Logger::ERROR, text});
    lines.push_back({Logger::ERROR, "Exit code: " + std::to_string(exit_code(status))});
    if (by_signal(status)) add_signal_info(lines, status, not_responding);
    return lines;
}

}  // namespace corvo::server
