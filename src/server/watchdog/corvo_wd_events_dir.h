#pragma once
// The folder of evidence, and the time-stamped folders in it. Anyone may be able to write in the log's folder
// (/tmp is the default), so a folder there may be a trap. Only one that is owned by our effective user or
// root is used, and all work in it goes through its descriptor, never through a link.

#include <sys/types.h>

#include <string>

#include "utils/unique_fd.h"

namespace corvo::server {

/** Mode of all files and directories in the events directory. */
inline constexpr unsigned int EVENTS_MODE = 0740;

/**
 * Opens a folder if it is trusted, without following a link; signal-safe. On failure, returns none with
 * errno set.
 */
UniqueFd open_trusted_dir(int parent_fd, const char* path);
/** Opens or creates a file in a folder, without following a link or waiting for a pipe; signal-safe. */
UniqueFd open_below(int dir_fd, const char* name, int flags);

class EventsDir {
 public:
    enum IfMissing { MAKE, LEAVE };

    /** `path` must end in "/". */
    explicit EventsDir(const std::string& path, IfMissing if_missing = MAKE);
    /** A folder in `parent`, created if it is missing. */
    EventsDir(const EventsDir& parent, const std::string& name);

    explicit operator bool() const { return static_cast<bool>(m_fd); }
    /** An errno value if the folder can't be used. */
    int error() const { return m_error; }
    const std::string& path() const { return m_path; }

    /** On failure, returns none with errno set; doesn't log. */
    UniqueFd open(const std::string& name, int flags) const {
        return open_below(m_fd.get(), name.c_str(), flags);
    }
    bool has(const std::string& name) const;
    /** Removes a file, a link or an empty folder. */
    bool remove(const std::string& name) const;
    bool move(const std::string& name, const EventsDir& to) const;

 private:
    void enter(int parent_fd, const std::string& name, IfMissing if_missing);

    std::string m_path;
    UniqueFd m_fd;
    int m_error = 0;
};

}  // namespace corvo::server
