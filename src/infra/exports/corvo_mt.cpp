#include "infra/exports/corvo_mt.h"

#include <cerrno>

static_assert(sizeof(corvo_mt_client_) == 112);

bool corvo_mt_supported() {
    return false;
}

int corvo_mt_get(int, corvo_mt_client_* out) {
    *out = {};
    return -EOPNOTSUPP;
}

int corvo_mt_register_client(const char*) {
    return -1;
}

int corvo_mt_set_active_client(int) {
    return 0;
}

int corvo_mt_get_active_client() {
    return -1;
}

int corvo_mt_pause() {
    return -1;
}

void corvo_mt_resume(int) {}

void corvo_mt_ext_on_malloc(int, unsigned int, void*) {}

void corvo_mt_ext_on_free(int, unsigned int, void*) {}

unsigned int corvo_mt_ext_align_size(unsigned int size) {
    return size;
}

void corvo_mt_ext_track(void*, unsigned int) {}

void corvo_mt_ext_untrack(void*, unsigned int) {}
