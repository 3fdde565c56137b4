#pragma once
// Keeps libcurl's side effects away from the process in which we are a guest.

#include <curl/curl.h>

#include <set>

#include "blocked_signals.h"

namespace corvo::engine {

/**
 * While it exists, threads that curl starts receive no signals. On destruction, all descriptors opened in the
 * meantime are made close-on-exec. Use it around calls that may start a thread to look up a name: signal
 * handlers must run on the one thread that expects them, and curl opens its internal pipes without the flag.
 */
class CurlGuard {
 public:
    CurlGuard();
    CurlGuard(const CurlGuard&) = delete;
    CurlGuard& operator=(const CurlGuard&) = delete;
    ~CurlGuard();

 private:
    std::set<int> m_before;
    const BlockedSignals m_no_signals;
};

/** Keeps libcurl loaded. Its lookup threads may outlive the engine, and their code must not be unmapped. */
void keep_curl_library();

/** For CURLOPT_OPENSOCKETFUNCTION: opens close-on-exec sockets above the standard descriptors. */
int open_curl_socket(void* context, curlsocktype purpose, curl_sockaddr* address);

}  // namespace corvo::engine
