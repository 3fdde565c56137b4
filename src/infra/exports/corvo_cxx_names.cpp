// The functions that engine libraries bind to by name, exported under their mangled C++ names as well: we
// can't know whether a library's header declared them extern "C". Must not include the headers that declare
// the C names.

#include <pthread.h>

struct epoll_event;
struct itimerspec;
struct pollfd;
struct sockaddr;
struct timespec;
struct cvmalloc_stats_;
struct corvo_mt_client_;

#define CXX_NAME(result, name, params, args) \
    namespace c {                            \
    extern "C" result name params;           \
    }                                        \
    result name params {                     \
        return c::name args;                 \
    }

CXX_NAME(int, cv_timerfd_create, (int a, int b), (a, b))
CXX_NAME(int, cv_timerfd_settime, (int a, int b, const itimerspec* c, itimerspec* d), (a, b, c, d))
CXX_NAME(int, cv_nanosleep, (const timespec* a, timespec* b), (a, b))
CXX_NAME(int, cv_socket, (int a, int b, int c), (a, b, c))
CXX_NAME(int, cv_bind, (int a, const sockaddr* b, unsigned int c), (a, b, c))
CXX_NAME(int, cv_listen, (int a, int b), (a, b))
CXX_NAME(int, cv_connect, (int a, const sockaddr* b, unsigned int c), (a, b, c))
CXX_NAME(long, cv_send, (int a, const void* b, unsigned int c, int d), (a, b, c, d))
CXX_NAME(long, cv_recv, (int a, void* b, unsigned int c, int d), (a, b, c, d))
CXX_NAME(int, cv_socketpair, (int a, int b, int c, int* d), (a, b, c, d))
CXX_NAME(int, cv_close, (int a), (a))
CXX_NAME(int, cv_epoll_create1, (int a), (a))
CXX_NAME(int, cv_epoll_ctl, (int a, int b, int c, epoll_event* d), (a, b, c, d))
CXX_NAME(int, cv_epoll_wait, (int a, epoll_event* b, int c, int d), (a, b, c, d))
CXX_NAME(int, cv_poll, (pollfd * a, unsigned long b, int c), (a, b, c))
CXX_NAME(int, cv_set_sock_send_qsize, (int a, unsigned int b), (a, b))
CXX_NAME(int, cv_get_sock_send_qsize, (int a, unsigned int& b), (a, b))

CXX_NAME(void*, cvmalloc, (unsigned int a), (a))
CXX_NAME(void*, cvcalloc, (unsigned int a, unsigned int b), (a, b))
CXX_NAME(void*, cvrealloc, (void* a, unsigned int b), (a, b))
CXX_NAME(void, cvfree, (void* a), (a))
CXX_NAME(int, cvmalloc_trim, (int a), (a))
CXX_NAME(void*, cvcalloc_large, (unsigned int a), (a))
CXX_NAME(void, cvfree_large, (void* a, unsigned int b), (a, b))
CXX_NAME(int, cvmalloc_stats, (cvmalloc_stats_ * a), (a))

CXX_NAME(void, corvo_lock_init, (pthread_mutex_t * a), (a))
CXX_NAME(void, corvo_lock_lock, (pthread_mutex_t * a), (a))
CXX_NAME(void, corvo_lock_unlock, (pthread_mutex_t * a), (a))

CXX_NAME(bool, corvo_mt_supported, (), ())
CXX_NAME(int, corvo_mt_get, (int a, corvo_mt_client_* b), (a, b))
CXX_NAME(int, corvo_mt_register_client, (const char* a), (a))
CXX_NAME(int, corvo_mt_set_active_client, (int a), (a))
CXX_NAME(int, corvo_mt_get_active_client, (), ())
CXX_NAME(int, corvo_mt_pause, (), ())
CXX_NAME(void, corvo_mt_resume, (int a), (a))
CXX_NAME(void, corvo_mt_ext_on_malloc, (int a, unsigned int b, void* c), (a, b, c))
CXX_NAME(void, corvo_mt_ext_on_free, (int a, unsigned int b, void* c), (a, b, c))
CXX_NAME(unsigned int, corvo_mt_ext_align_size, (unsigned int a), (a))
CXX_NAME(void, corvo_mt_ext_track, (void* a, unsigned int b), (a, b))
CXX_NAME(void, corvo_mt_ext_untrack, (void* a, unsigned int b), (a, b))
