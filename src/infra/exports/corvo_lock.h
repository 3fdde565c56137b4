#pragma once
// Recursive mutexes for engine libraries, which bind to them by name. The single-threaded daemon uses none of
// them. A null pointer is ignored.

#include <pthread.h>

extern "C" {

/** The caller owns the memory, and destroys the mutex with pthread_mutex_destroy. */
void corvo_lock_init(pthread_mutex_t* m);
void corvo_lock_lock(pthread_mutex_t* m);
void corvo_lock_unlock(pthread_mutex_t* m);
}
