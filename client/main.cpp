#include <CLI/CLI.hpp>
#include <cstdio>

#include "client/context.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/words.h"

namespace {

using namespace brumectl;

void add_options(CLI::App& app, Options& options) {
    app.add_option("-s,--socket", options.address, "The daemon: path of its Unix socket, or IP:PORT");
    app.add_option("--timeout", options.timeout_sec, "Seconds to wait for an answer")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    app.add_flag("--json", options.json, "Answers as the daemon gave them");
}

int run(int argc, char** argv) {
    CLI::App app("Asks brumecpd, the control-plane daemon of a traffic-classification engine.", "brumectl");
    Options options;
    Context context(options);
    app.require_subcommand(1);
    add_options(app, options);
    add_words(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? EXIT_OK : EXIT_USAGE;
    } catch (const Failure& e) {
        context.complain(e.what());
        return e.status();
    }
    return EXIT_OK;
}

}  // namespace

int main(int argc, char** argv) {
    brumectl::interrupt::install();
    try {
        return run(argc, argv);
    } catch (const brumectl::Interrupted& e) {
        fflush(nullptr);
        brumectl::interrupt::die_by(e.signum());
    }
}
