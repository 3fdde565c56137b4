#pragma once
// Checks of options' values, whose complaints people understand. They stand behind the option's name:
// "'--lines' must be from 1 to 9, not '0'".

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace brumectl {

/** Not CLI::Range: it lets "nan" through. */
CLI::Validator seconds_between(double least, double most);
/** A whole number in decimal digits. */
CLI::Validator number_between(uint64_t least, uint64_t most);
/** A number of bytes, with K, M, G or T behind it for powers of 1024. Writes it anew in digits: give it to
 * `transform`, as `check` works on a copy. */
CLI::Validator size_in_bytes();
/** Not the empty text. */
CLI::Validator not_empty();
/** Sets the type's name, too, which tells help and completion the choices. */
void restrict_to(CLI::Option& option, const std::vector<std::string>& choices);

}  // namespace brumectl
