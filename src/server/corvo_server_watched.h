#pragma once
// The one server, if there is one, as its watchdog sees it.

#include "server/watchdog/corvo_wd_server.h"

namespace corvo::server {

/** Asks `Server::g_ptr` at each call. Lives for ever. */
const WatchedServer& watched_server();

}  // namespace corvo::server
