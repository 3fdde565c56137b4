#pragma once
// For which build of the daemon a configuration is judged, and how that is known: told, asked, or as
// packaged.

#include <string>

#include "client/wire/build.h"

namespace CLI {
class App;
}

namespace brumectl {
class Daemon;
}

namespace brumectl::check {

/** What the options say. At most one of them. */
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
    /** As packaged where the daemon doesn't show it. @throws what Daemon::call throws but ErrorReply */
    static JudgedBuild asked(Daemon& daemon);
};

}  // namespace brumectl::check
