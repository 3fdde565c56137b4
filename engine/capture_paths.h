#pragma once
// The data paths of captures: each comes with the first push to it, and shares nothing with another.

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

    // Throw Error on a name that isn't one.
    /** Null if there is none. Counts as use. */
    NamedPath* find(const std::string& dpaddr);
    /** Makes one where there is none; throws Error if there are MAX_PATHS of them. */
    NamedPath& open(const std::string& dpaddr, uint64_t instance);
    /** Nothing if there is none. What it holds is freed by and by. */
    void close(const std::string& dpaddr);
    void close_all();

    /** Ends what nobody uses, and gives the wanted delay to the next call, ms. */
    uint64_t tick(uint64_t now_ms);

 private:
    using Paths = std::vector<std::unique_ptr<NamedPath>>;

    Paths::iterator find_path(const std::string& dpaddr);
    void retire(Paths::iterator path);

    Classifiers& m_classifiers;
    ClockFn m_clock;
    Paths m_paths;
    Paths m_retired;
    uint64_t m_used_ms = 0;      ///< when any of them was used last
    bool m_wants_spare = false;  ///< a classifier for the next one is still to be made
    bool m_wants_trim = false;   ///< memory is still to be given back to the system
};

}  // namespace corvo::engine
