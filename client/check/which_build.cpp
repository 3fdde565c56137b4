#include "client/check/which_build.h"

#include <CLI/CLI.hpp>

#include "client/wire/daemon.h"

namespace brumectl::check {

void add_build_options(CLI::App& word, ToldBuild& told) {
    CLI::Option* slave =
        word.add_flag("--slave-mode", told.slave_mode,
                      "Assume a daemon in slave mode, where a host system decides what is attached");
    word.add_flag("--standalone", told.standalone, "Assume a daemon without a host system, which may attach")
        ->excludes(slave);
}

JudgedBuild JudgedBuild::told(const ToldBuild& told) {
    Build build = packaged_build();
    build.slave_mode = told.slave_mode;
    return {build, build.text() + ", as the option says"};
}

JudgedBuild JudgedBuild::packaged() {
    return {packaged_build(), packaged_build().text() + ", as the one packaged with this program is"};
}

JudgedBuild JudgedBuild::asked(Daemon& daemon) {
    const auto build = build_of(daemon);
    return build ? JudgedBuild{*build, build->text() + ", as the one at " + daemon.address().text + " is"}
                 : packaged();
}

}  // namespace brumectl::check
