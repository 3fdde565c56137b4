#pragma once
// Checks of options' values, with complaints that people understand. They follow the option's name:
// "'--lines' must be from 1 to 9, not '0'".

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace brumectl {

/** Unlike CLI::Range, rejects "nan". */
CLI::Validator seconds_between(double least, double most);
/** A whole number in decimal digits. */
CLI::Validator number_between(uint64_t least, uint64_t most);
/**
 * A number of bytes, optionally with the suffix K, M, G or T for powers of 1024. Rewrites it in digits, so
 * use it with `transform`; `check` works on a copy.
 */
CLI::Validator size_in_bytes();
/** Rejects the empty text. */
CLI::Validator not_empty();
/** Also sets the type's name, from which help and completion learn the choices. */
void restrict_to(CLI::Option& option, const std::vector<std::string>& choices);

}  // namespace brumectl
