#pragma once
// Which build of the daemon a configuration is checked against, and how that is known: from an option, from
// the daemon, or from the package.

#include <string>

#include "client/wire/build.h"

namespace CLI {
class App;
}

namespace brumectl {
class Daemon;
}

namespace brumectl::check {

/** Set by options; at most one of them. */
struct ToldBuild {
    bool slave_mode = false;
    bool standalone = false;
    bool any() const { return slave_mode || standalone; }
};

/** `told` must outlive the word. */
void add_build_options(CLI::App& word, ToldBuild& told);

struct JudgedBuild {
    Build build = {};
    std::string text = {};  ///< "standalone daemon, as the one at /run/x is"

    static JudgedBuild told(const ToldBuild& told);
    static JudgedBuild packaged();
    /**
     * Falls back to the packaged build if the daemon doesn't show its own. Throws what Daemon::call throws,
     * except ErrorReply.
     */
    static JudgedBuild asked(Daemon& daemon);
};

}  // namespace brumectl::check
