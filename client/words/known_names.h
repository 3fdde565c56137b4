#pragma once
// Names that only the running system knows, for completion: collectors, interfaces, log components and the
// like, each with a few words on it. What can't be learned within a moment isn't known: nothing here fails.

#include <optional>
#include <string>
#include <vector>

#include "client/context.h"

namespace brumectl {

/** What can stand at a place of the command line. */
struct Candidate {
    std::string text;
    std::string description = {};  ///< a few words; may be empty
};

/** Whom to ask and where to look. */
struct Surroundings {
    Options options = {};           ///< the daemon's address counts; the time-out doesn't
    std::string evidence_dir = {};  ///< empty: the usual places
};

/**
 * The names for a value of a word, in no order; `value` is an option such as "--comp", or a positional.
 * Nothing where the value isn't such a name, an empty list where there are none or nobody can be asked: the
 * daemon has 300 ms. Names that a shell wouldn't take as they are aren't offered.
 */
std::optional<std::vector<Candidate>> known_names(const std::string& word, const std::string& value,
                                                  const Surroundings& around);

}  // namespace brumectl
