#include "server/watchdog/signal_trap.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

volatile bool g_armed = false;

[[maybe_unused]] void forbidden(const char* name) {
    if (!g_armed) return;
    g_armed = false;
    for (const char* text : {"not signal-safe: ", name, "\n"})
        if (write(STDERR_FILENO, text, strlen(text)) < 0) break;
    abort();
}

}  // namespace

#if BRUMECPD_SANITIZER == 0
// The program's own functions come before the C library's, also for calls from libraries.
extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t size) {
    forbidden("malloc");
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    forbidden("calloc");
    return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size) {
    forbidden("realloc");
    return __libc_realloc(p, size);
}
void free(void* p) {
    forbidden("free");
    __libc_free(p);
}

#define TRAPPED(result, name, parameters, arguments)                                          \
    result name parameters {                                                                  \
        static auto* const real = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name)); \
        forbidden(#name);                                                                     \
        return real arguments;                                                                \
    }
TRAPPED(int, pthread_mutex_lock, (pthread_mutex_t * m), (m))
TRAPPED(FILE*, fopen, (const char* path, const char* mode), (path, mode))
TRAPPED(FILE*, fopen64, (const char* path, const char* mode), (path, mode))
TRAPPED(size_t, fwrite, (const void* p, size_t size, size_t count, FILE* f), (p, size, count, f))
TRAPPED(int, fputs, (const char* text, FILE* f), (text, f))
TRAPPED(int, vfprintf, (FILE * f, const char* fmt, va_list args), (f, fmt, args))
TRAPPED(int, vsnprintf, (char* dst, size_t size, const char* fmt, va_list args), (dst, size, fmt, args))
#undef TRAPPED
}
#endif

namespace test {

SignalTrap::SignalTrap() {
    g_armed = true;
}

SignalTrap::~SignalTrap() {
    g_armed = false;
}

}  // namespace test
