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
// The program's own functions take precedence over the C library's, even in calls from libraries.
extern "C" {

// `dlsym` may use the heap itself, so the heap's functions go by their other names.
#define TRAPPED_HEAP(result, name, parameters, arguments) \
    result __libc_##name parameters;                      \
    result name parameters {                              \
        forbidden(#name);                                 \
        return __libc_##name arguments;                   \
    }
TRAPPED_HEAP(void*, malloc, (size_t size), (size))
TRAPPED_HEAP(void*, calloc, (size_t count, size_t size), (count, size))
TRAPPED_HEAP(void*, realloc, (void* p, size_t size), (p, size))
TRAPPED_HEAP(void, free, (void* p), (p))
#undef TRAPPED_HEAP

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
