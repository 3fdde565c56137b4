#pragma once
// The allocator for the compression code and for engine libraries, which bind to it by name. There is a
// single heap: memory from any of these functions may be released with either `cvfree` or `cvfree_large`.

/** Sizes in bytes; they wrap around for heaps of 4 GiB and more. */
struct cvmalloc_stats_ {
    unsigned int heap_size;
    unsigned int used;
    unsigned int free;
};

extern "C" {

void* cvmalloc(unsigned int size);
void* cvcalloc(unsigned int count, unsigned int size);
void* cvrealloc(void* p, unsigned int size);
void cvfree(void* p);
/**
 * Returns unused heap memory to the system, keeping `pad` bytes at the top. Returns 1 if any was released.
 */
int cvmalloc_trim(int pad);

/** Zeroed memory, for large blocks. */
void* cvcalloc_large(unsigned int size);
void cvfree_large(void* p, unsigned int size);

/** Always returns 0. */
int cvmalloc_stats(cvmalloc_stats_* out);
}
