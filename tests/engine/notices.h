#pragma once
// The notifications that the engine raises, in the place of a daemon's hub.

#include <brumecpd/engine_notify.h>

#include <string>
#include <utility>
#include <vector>

namespace test {

/** Each as "feature name severity: text", since the last call. */
std::vector<std::string> take_notices();

}  // namespace test
