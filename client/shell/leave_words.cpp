#include "client/shell/leave_words.h"

#include <CLI/CLI.hpp>

namespace brumectl {

void add_leave_words(CLI::App& app) {
    for (const char* name : {"quit", "exit"})
        app.add_subcommand(name, "Leave the shell, as Ctrl-D does")->callback([] { throw LeaveShell(); });
}

}  // namespace brumectl
