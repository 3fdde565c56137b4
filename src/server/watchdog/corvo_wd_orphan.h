#pragma once
// A server whose parent has died is the only reader of its own stderr: once the pipe is full, the next text
// would block it for ever, with nobody left to notice. The kernel reports the parent's death with SIGPIPE,
// whose handler closes the read end; from then on, writing to stderr fails instead.

#include <sys/types.h>

#include "utils/unique_fd.h"

namespace corvo::server {

/**
 * Takes over the read end of the stderr pipe. Called in the child, once its signal handlers are installed.
 */
void watch_parent(pid_t parent, UniqueFd read_end);
/** Closes the read end if the parent is gone; signal-safe. */
void drop_stderr_of_orphan();

}  // namespace corvo::server
