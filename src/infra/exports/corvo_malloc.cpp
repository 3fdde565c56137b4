#include "infra/exports/corvo_malloc.h"

#include <malloc.h>

#include <cstdlib>

void* cvmalloc(unsigned int size) {
    return std::malloc(size);
}

void* cvcalloc(unsigned int count, unsigned int size) {
    return std::calloc(count, size);
}

void* cvrealloc(void* p, unsigned int size) {
    return std::realloc(p, size);
}

void cvfree(void* p) {
    std::free(p);
}

int cvmalloc_trim(int pad) {
    return malloc_trim(static_cast<size_t>(pad));
}

void* cvcalloc_large(unsigned int size) {
    return std::calloc(1, size);
}

void cvfree_large(void* p, unsigned int) {
    std::free(p);
}

int cvmalloc_stats(cvmalloc_stats_* out) {
    // mallinfo's fields are signed 32-bit. mallinfo2 counts without overflow and is truncated once, here.
    const auto info = mallinfo2();
    out->heap_size = static_cast<unsigned int>(info.arena);
    out->used = static_cast<unsigned int>(info.uordblks);
    out->free = static_cast<unsigned int>(info.fordblks);
    return 0;
}
