#pragma once
// Whether the daemon's user may read a startup configuration. If not, the daemon only logs that and continues
// without an engine.

#include <optional>
#include <string>

#include "client/wire/file_reader.h"

namespace brumectl::check {

/** The user that the service runs as; empty if it isn't installed. */
std::optional<FileReader> service_user();

/** A number if the user has no name here. */
std::string name_of(uid_t user);

/**
 * Why the file can't be read, such as "can't enter /root (mode 0700, of root)"; empty if it can, or if the
 * modes don't decide it (access lists).
 */
std::string hindrance(const FileReader& who, const std::string& path);

}  // namespace brumectl::check
