#pragma once
// What libcurl does behind our back, kept from the process that we are a guest in.

#include <curl/curl.h>
#include <pthread.h>

#include <csignal>
#include <set>

namespace corvo::engine {

/**
 * While it exists, whatever curl starts takes no signal, and at its end all descriptors that were opened in
 * the meantime are close-on-exec. For calls that may start a thread to look up a name: signal handlers must
 * run on the one thread that expects them, and curl's internal pipes come without the flag.
 */
class CurlGuard {
 public:
    CurlGuard();
    CurlGuard(const CurlGuard&) = delete;
    CurlGuard& operator=(const CurlGuard&) = delete;
    ~CurlGuard();

 private:
    sigset_t m_signals;
    std::set<int> m_before;
};

/** Makes libcurl stay in the process: its look-up threads may outlive the engine, and would run nowhere. */
void keep_curl_library();

/** For CURLOPT_OPENSOCKETFUNCTION: sockets above the standard descriptors, close-on-exec. */
int open_curl_socket(void* context, curlsocktype purpose, curl_sockaddr* address);

}  // namespace corvo::engine
