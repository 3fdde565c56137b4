#pragma once
// The only server, if there is one, as seen by its watchdog.

#include "server/watchdog/corvo_wd_server.h"

namespace corvo::server {

/** Looks up `Server::g_ptr` at each call. Lives for ever. */
const WatchedServer& watched_server();

}  // namespace corvo::server
