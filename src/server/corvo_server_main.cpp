#include "server/corvo_server_main.h"

#include "server/corvo_server.h"
#include "server/corvo_server_command_line.h"

void main_int(int argc, const char** argv) {
    const corvo::server::Options options = corvo::server::parse_command_line(argc, argv);
    corvo::server::Server server(options);
    server.run();
}
