#pragma once
// The streams that readers and writers work on.

#include <cstdint>
#include <cstdio>

#include "utils/unique_file.h"

namespace corvo {

using FilePtr = UniqueFile;

/**
 * Opens for reading, or gives null with errno set. Doesn't wait for anything: paths come from clients, and
 * the far end of a FIFO may never show up.
 */
FilePtr open_to_read(const char* path);

/** Creates or empties the file, or gives null with errno set. */
FilePtr open_to_write(const char* path);

/** The size of an open file in bytes, -1 if it has none; the position is its start afterwards. */
int64_t measure(FILE* file);

/** Moves forward; false if that fails. Moving behind the end succeeds, and the next read finds the end. */
bool skip(FILE* file, int64_t bytes);

}  // namespace corvo
