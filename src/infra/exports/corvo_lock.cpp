#include "infra/exports/corvo_lock.h"

void corvo_lock_init(pthread_mutex_t* m) {
    if (!m) return;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(m, &attr);
    pthread_mutexattr_destroy(&attr);
}

void corvo_lock_lock(pthread_mutex_t* m) {
    if (m) pthread_mutex_lock(m);
}

void corvo_lock_unlock(pthread_mutex_t* m) {
    if (m) pthread_mutex_unlock(m);
}
