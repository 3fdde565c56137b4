#pragma once

namespace corvo::server {

/**
 * Turns the process into a daemon: two forks around a new session, every descriptor closed, syslog opened.
 * Only the last child returns true; the processes left behind exit with 0. Returns false if a fork or
 * setsid failed.
 */
bool daemonize();

/** Closes every descriptor of the process, including the standard ones. */
void close_all_descriptors();

}  // namespace corvo::server
