#pragma once
// Ownership of C streams.

#include <cstdio>
#include <memory>

namespace corvo {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

/** Owns one stream and closes it. Null means none. */
using UniqueFile = std::unique_ptr<FILE, FileCloser>;

}  // namespace corvo
