#pragma once
// Opens files by a name under which somebody else may have placed a link.

#include <sys/types.h>

#include <string>

#include "utils/unique_fd.h"

namespace corvo {

/**
 * Like `open`, but refuses to follow a link that is owned by neither our effective user nor root and lies in
 * a folder that others can write to: it may be a trap, so the call fails with EPERM. The descriptor is above
 * the standard ones and close-on-exec.
 */
UniqueFd open_unless_trap(const std::string& path, int flags, mode_t mode = 0);

}  // namespace corvo
