#pragma once
// The sums of a data path, as JSON.

#include <json/value.h>

#include "named_path.h"

namespace corvo::engine {

/**
 * With `finish` nDPI gives up on undecided flows, as many as there is time for; "complete" says whether none
 * are left. `guess`: whether guesses count under what they guess.
 */
Json::Value summarize(NamedPath& path, bool finish, bool guess);

}  // namespace corvo::engine
