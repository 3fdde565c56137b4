#pragma once
// Names that only the running system knows, for completion: collectors, interfaces, log components and the
// like, each with a few words of description. Names that can't be learned within a moment are left out;
// nothing here fails.

#include <optional>
#include <string>
#include <vector>

#include "client/context.h"

namespace brumectl {

/** A possible completion on the command line. */
struct Candidate {
    std::string text;
    std::string description = {};  ///< a few words; may be empty
};

/** Which daemon to ask and where to look. */
struct Surroundings {
    Options options = {};           ///< only the daemon's address is used, not the timeout
    std::string evidence_dir = {};  ///< empty: the usual places
};

/**
 * The names for a value of a word, in no particular order; `value` is an option such as "--comp", or a
 * positional. Returns nothing if the value isn't such a name, and an empty list if there are no names or
 * nobody can be asked: the daemon has 300 ms. Names that would need quoting in a shell are left out.
 */
std::optional<std::vector<Candidate>> known_names(const std::string& word, const std::string& value,
                                                  const Surroundings& around);

}  // namespace brumectl
