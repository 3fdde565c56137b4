#pragma once
// Converts the command line to the Options of a Server: declares the options and rejects combinations that
// don't make sense.

#include <string>

#include "server/corvo_server_options.h"

extern const std::string process_name;

namespace corvo::server {

/**
 * A wrong command line and --help end the process; the former with usage and message on standard error and
 * status 2. With --nocore, the core size limit of this process and its children is 0 from here on.
 */
Options parse_command_line(int argc, const char* const* argv);

}  // namespace corvo::server
