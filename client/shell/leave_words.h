#pragma once
// `quit` and `exit`, which only the shell has.

namespace CLI {
class App;
}

namespace brumectl {

/** What these words throw. No failure: nothing is to be told. */
struct LeaveShell {};

void add_leave_words(CLI::App& app);

}  // namespace brumectl
