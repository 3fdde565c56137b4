#pragma once
// From the command line to the Options of a Server: declares the options, and refuses what doesn't fit
// together.

#include <string>

#include "server/corvo_server_options.h"

/** "brumecpd". */
extern const std::string process_name;

namespace corvo::server {

/**
 * A wrong command line, and --help, end the process: the first with usage and message on standard error and
 * status 2. With --nocore the core size limit of this process, and so of all its children, is 0 from here on.
 */
Options parse_command_line(int argc, const char* const* argv);

}  // namespace corvo::server
