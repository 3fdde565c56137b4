#pragma once
// The streams used by readers and writers.

#include <cstdint>
#include <cstdio>

#include "utils/unique_file.h"

namespace corvo {

using FilePtr = UniqueFile;

/**
 * Opens for reading. Returns null with errno set on failure. Never blocks: paths come from clients, and a
 * FIFO may never have a writer.
 */
FilePtr open_to_read(const char* path);

/** Creates or truncates the file. Returns null with errno set on failure. */
FilePtr open_to_write(const char* path);

/** The size of an open file in bytes, or -1 if it has none. Leaves the position at the start. */
int64_t measure(FILE* file);

/** Moves forward; false on failure. Moving past the end succeeds, and the next read hits the end. */
bool skip(FILE* file, int64_t bytes);

}  // namespace corvo
