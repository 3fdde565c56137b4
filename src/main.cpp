#include <csignal>
#include <cstdio>

#include "infra/corvo_notif.h"
#include "server/corvo_server_main.h"

int main(int argc, const char** argv) {
    // Line-buffered even into a pipe or file, so that output is readable while the daemon runs.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    // If the reader of our output goes away, lines are lost but the daemon goes on.
    std::signal(SIGPIPE, SIG_IGN);
    corvo::notif::notify({"core", "server.up", corvo::notif::SEV_INFO});
    main_int(argc, argv);
    return 0;
}
