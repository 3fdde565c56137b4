// Life and death of the engine that does nothing. INIT_ERROR: the text with which init fails. EVFD: the
// descriptor that is given instead of a good one.

#include <brumecpd/engine_api.h>
#include <sys/eventfd.h>
#include <unistd.h>

#ifndef INIT_ERROR
#define INIT_ERROR ""
#endif
#ifndef EVFD
#define EVFD g_evfd
#endif

[[maybe_unused]] static int g_evfd = -1;

void corvo_api_cp_init(const corvo::api::InitConfig&, std::string& err) {
    err = INIT_ERROR;
    if (err.empty()) g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void corvo_api_cp_deinit(std::string&) {
    close(g_evfd);
}

void corvo_api_cp_get_evfd(int& fd, std::string&) {
    fd = EVFD;
}
