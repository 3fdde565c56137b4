#pragma once
// `shell`: one command per line. At a terminal with editing, history and completion; otherwise as a script
// that stops at its first failure.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_shell(CLI::App& app, Context& context);
/** `quit` and `exit`, which only the shell has. */
void add_leave_words(CLI::App& app);

}  // namespace brumectl
