#pragma once
// Opens an engine library for inspection. Unlike the daemon's loader, which stops at the first missing
// symbol, it reports everything that is missing.

#include <string>
#include <vector>

#include "server/corvo_server_loader_api.h"

namespace engine_check {

class Library {
 public:
    Library() = default;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** Runs the library's constructors. Returns why it can't be opened; empty on success. */
    std::string open(const std::string& path);
    /** Looks up all 22 functions and returns the names of those that are missing. */
    std::vector<std::string> resolve();
    /**
     * Names of run-time libraries that the library was linked with in a different version from this
     * program's, and so from the daemon's. Their objects cross the boundary.
     */
    std::vector<std::string> foreign_runtimes() const;
    /** Runs the library's destructors. Returns the error text; empty on success. */
    std::string close();

    const corvo::server::EngineApi& api() const { return m_api; }

 private:
    void* m_handle = nullptr;
    corvo::server::EngineApi m_api;
};

}  // namespace engine_check
