#pragma once
// The allocator of the compression code and of engine libraries, which bind to it by name. One heap serves
// all of it: memory of any of these may be given back through either `cvfree` or `cvfree_large`.

/** Sizes in bytes; they wrap in a heap of 4 GiB and more. */
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
/** Gives unused heap back to the system, keeping `pad` bytes at its top; 1 if any was given back. */
int cvmalloc_trim(int pad);

/** Zeroed memory, for big blocks. */
void* cvcalloc_large(unsigned int size);
void cvfree_large(void* p, unsigned int size);

/** Gives 0. */
int cvmalloc_stats(cvmalloc_stats_* out);
}
