#pragma once
// The totals of a data path, as JSON.

#include <json/value.h>

#include "named_path.h"

namespace corvo::engine {

/**
 * With `finish`, nDPI gives up on as many undecided flows as time allows; "complete" tells whether none are
 * left. `guess` selects whether a guessed flow counts under its guess.
 */
Json::Value summarize(NamedPath& path, bool finish, bool guess);

}  // namespace corvo::engine
