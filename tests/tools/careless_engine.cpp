// The life of an engine that leaves a descriptor and a thread behind.

#include <brumecpd/engine_api.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

static int g_evfd = -1;

void corvo_api_cp_init(const corvo::api::InitConfig&, std::string&) {
    g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    pthread_t thread;
    pthread_create(
        &thread, nullptr, [](void*) -> void* { return reinterpret_cast<void*>(intptr_t{pause()}); }, nullptr);
}

void corvo_api_cp_deinit(std::string&) {}

void corvo_api_cp_get_evfd(int& fd, std::string&) {
    fd = g_evfd;
}
