#pragma once
// What a child's end means: whether it was normal, what the log says about it, and the parent's exit code if
// it ends now. Decides from the wait status alone, without side effects.

#include <string>
#include <vector>

#include "infra/corvo_logger.h"

namespace corvo::server {

struct StatusLine {
    Logger::logger_level_e level;
    std::string text;
};

/**
 * Whether the result of `waitpid`, with errno, means that the child is gone. An interrupted call says
 * nothing: taking it for an end would leave the server running unsupervised.
 */
bool wait_tells_end(int result, int error);
/**
 * After a stop signal, every end is normal. Without one, an end that the watchdog caused never is, and any
 * other is normal if the child exited with code 0.
 */
bool child_exited_normally(int status, int stop_cause, bool not_responding);
int parent_exit_code(int status, bool normal);
/** What the log says about the end, one message per line. */
std::vector<StatusLine> status_info(int status, bool not_responding);

}  // namespace corvo::server
