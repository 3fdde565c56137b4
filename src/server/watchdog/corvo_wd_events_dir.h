#pragma once
// The folder of evidence, and the stamped ones in it. The log's folder may be anybody's to write in (/tmp is
// the default), so a folder there may be somebody else's trap: only one that belongs to our effective user or
// to root is used, and what is done in it is done below its descriptor, never through a link.

#include <sys/types.h>

#include <string>

#include "utils/unique_fd.h"

namespace corvo::server {

/** Of all files and directories in the events directory. */
inline constexpr unsigned int EVENTS_MODE = 0740;

/** Opens a folder that is trusted, without following a link; signal-safe. None with errno otherwise. */
UniqueFd open_trusted_dir(int parent_fd, const char* path);
/** Opens or creates a file of a folder, without following a link or waiting for a pipe; signal-safe. */
UniqueFd open_below(int dir_fd, const char* name, int flags);

class EventsDir {
 public:
    enum IfMissing { MAKE, LEAVE };

    /** `path` ends in "/". */
    explicit EventsDir(const std::string& path, IfMissing if_missing = MAKE);
    /** A folder in `parent`, made where it is missing. */
    EventsDir(const EventsDir& parent, const std::string& name);

    explicit operator bool() const { return static_cast<bool>(m_fd); }
    /** Why it can't be used, an errno value. */
    int error() const { return m_error; }
    const std::string& path() const { return m_path; }

    /** None with errno; not logged. */
    UniqueFd open(const std::string& name, int flags) const {
        return open_below(m_fd.get(), name.c_str(), flags);
    }
    bool has(const std::string& name) const;
    /** A file, a link or an empty folder. */
    bool remove(const std::string& name) const;
    bool move(const std::string& name, const EventsDir& to) const;

 private:
    void enter(int parent_fd, const std::string& name, IfMissing if_missing);

    std::string m_path;
    UniqueFd m_fd;
    int m_error = 0;
};

}  // namespace corvo::server
