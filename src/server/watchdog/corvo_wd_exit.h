#pragma once
// What a child's end means: whether it was normal, what the log says about it, and the exit code of the
// parent if it leaves now. Decides from the wait status alone, touches nothing.

#include <string>
#include <vector>

#include "infra/corvo_logger.h"

namespace corvo::server {

struct StatusLine {
    Logger::logger_level_e level;
    std::string text;
};

/**
 * Whether the result of `waitpid`, with errno, means that the child is gone. An interrupted call has told
 * nothing: taken for an end, the server would go on with nobody watching it.
 */
bool wait_tells_end(int result, int error);
/**
 * After a stop signal every end is normal. Without one, an end that the watchdog brought about never is,
 * and any other one is if the child exited with code 0.
 */
bool child_exited_normally(int status, int stop_cause, bool not_responding);
int parent_exit_code(int status, bool normal);
/** What the log tells of the end, one message a line. */
std::vector<StatusLine> status_info(int status, bool not_responding);

}  // namespace corvo::server
