#pragma once
// Copies of captures that the daemon reads in their place: when there has to be one, where it goes, and who
// may read it. That is nobody who couldn't read the capture but the daemon, or the user is told before.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/classify/file_reader.h"
#include "client/temp_file.h"

namespace brumectl {

class Copies {
 public:
    using Tell = std::function<void(const std::string&)>;

    /** Asks the daemon nothing before the first of the calls below. Both must outlive this. */
    Copies(Daemon& daemon, Tell tell) : m_daemon(daemon), m_tell(std::move(tell)) {}

    /** As far as it can be told, the daemon can open this absolute path. @throws what Daemon::call throws */
    bool can_do_without(const std::string& capture);
    /** An empty file for the copy of this capture. @throws Failure; what Daemon::call throws */
    std::unique_ptr<TempFile> create(const std::string& capture);

 private:
    const std::optional<FileReader>& reader();
    void let_in(TempFile& copy, const std::string& capture);

    Daemon& m_daemon;
    Tell m_tell;
    bool m_has_looked = false;
    bool m_has_told = false;
    std::optional<FileReader> m_reader = {};
};

}  // namespace brumectl
