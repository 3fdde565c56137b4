#pragma once
// An engine library that is opened to be judged: unlike the daemon's loader, which stops at the first thing
// it misses, this one tells all that is missing.

#include <string>
#include <vector>

#include "server/corvo_server_loader_api.h"

namespace engine_check {

class Library {
 public:
    Library() = default;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** Runs the library's constructors. Gives why it can't be opened; empty for success. */
    std::string open(const std::string& path);
    /** Looks up all 22 functions and gives the names of those that aren't there. */
    std::vector<std::string> resolve();
    /**
     * Names of run-time libraries that the library was linked with in another version than this program, and
     * so the daemon, was: objects of theirs cross the boundary.
     */
    std::vector<std::string> foreign_runtimes() const;
    /** Runs the library's destructors. Gives the failure's text. */
    std::string close();

    const corvo::server::EngineApi& api() const { return m_api; }

 private:
    void* m_handle = nullptr;
    corvo::server::EngineApi m_api;
};

}  // namespace engine_check
