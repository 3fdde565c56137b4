#pragma once
// Memory-trace hooks, which engine libraries bind to by name. This build has no tracer: every hook is a stub
// whose result says so. A traced build replaces them.

/** The tracer's data about one client. The tracer defines the layout; the size is part of the interface. */
struct corvo_mt_client_ {
    unsigned char opaque[112];
};

extern "C" {

bool corvo_mt_supported();
/** Clears the whole record and returns -EOPNOTSUPP. */
int corvo_mt_get(int client, corvo_mt_client_* out);
int corvo_mt_register_client(const char* name);
int corvo_mt_set_active_client(int client);
int corvo_mt_get_active_client();
int corvo_mt_pause();
void corvo_mt_resume(int token);

void corvo_mt_ext_on_malloc(int client, unsigned int size, void* p);
void corvo_mt_ext_on_free(int client, unsigned int size, void* p);
unsigned int corvo_mt_ext_align_size(unsigned int size);
void corvo_mt_ext_track(void* p, unsigned int size);
void corvo_mt_ext_untrack(void* p, unsigned int size);
}
