#pragma once
// Opening files by a name that somebody else could have put a link to.

#include <sys/types.h>

#include <string>

#include "utils/unique_fd.h"

namespace corvo {

/**
 * `open`, but for a link that belongs neither to our effective user nor to root, in a folder that others may
 * write to: that is somebody's trap, and fails with EPERM. Above the standard descriptors, close-on-exec.
 */
UniqueFd open_unless_trap(const std::string& path, int flags, mode_t mode = 0);

}  // namespace corvo
