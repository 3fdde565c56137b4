#include <csignal>
#include <cstdio>

#include "infra/corvo_notif.h"
#include "server/corvo_server_main.h"

int main(int argc, const char** argv) {
    // Whole lines at once, into a pipe or file too: what was printed must be readable while the daemon runs.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    // A reader of our output that goes away costs lines, never the daemon.
    std::signal(SIGPIPE, SIG_IGN);
    corvo::notif::notify({"core", "server.up", corvo::notif::SEV_INFO});
    main_int(argc, argv);
    return 0;
}
