#pragma once
// Complaints about values that make no sense; each text follows the value's name.

#include <cstdint>
#include <string>
#include <vector>

namespace brumectl {

/** " (did you mean 'X'?)", or empty if no word in `known` is close. */
std::string did_you_mean(const std::string& word, const std::vector<std::string>& known);
/** "must be from 1 to 9, not '0'". */
std::string range_complaint(uint64_t least, uint64_t most, const std::string& text);
/** "must be one of a, b, not 'bb' (did you mean 'b'?)". */
std::string choice_complaint(const std::vector<std::string>& choices, const std::string& text);

}  // namespace brumectl
