#pragma once
// The data paths of captures. Each is created by `flows.open` or the first push to it, and shares nothing
// with the others.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "named_path.h"

namespace corvo::engine {

class CapturePaths {
 public:
    static constexpr const char* PREFIX = "capture:";
    static constexpr size_t MAX_PATHS = 8;
    static constexpr uint32_t MAX_FLOWS = 1000000;
    static constexpr uint64_t UNUSED_MS = 60000;

    CapturePaths(Classifiers& classifiers, ClockFn clock) : m_classifiers(classifiers), m_clock(clock) {}

    static bool is_capture(const std::string& dpaddr) { return dpaddr.starts_with(PREFIX); }

    // These throw Error if the name isn't valid.
    /** Returns null if there is none. Counts as a use. */
    NamedPath* find(const std::string& dpaddr);
    /** Creates a path that doesn't exist; throws Error if there are MAX_PATHS already. */
    NamedPath& open(const std::string& dpaddr, uint64_t instance, unsigned shards = 1);
    /** Does nothing if there is none. Its flows are freed gradually. */
    void close(const std::string& dpaddr);
    void close_all();

    /** Ends unused paths. Returns the delay until the next call, ms. */
    uint64_t tick(uint64_t now_ms);

 private:
    using Paths = std::vector<std::unique_ptr<NamedPath>>;

    Paths::iterator find_path(const std::string& dpaddr);
    void retire(Paths::iterator path);

    Classifiers& m_classifiers;
    ClockFn m_clock;
    Paths m_paths;
    Paths m_retired;
    uint64_t m_used_ms = 0;      ///< when any path was last used
    bool m_wants_spare = false;  ///< a spare classifier has yet to be made
    bool m_wants_trim = false;   ///< memory has yet to be returned to the system
};

}  // namespace corvo::engine
