#include "client/text/option_checks.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>

#include "client/text/complaints.h"

namespace brumectl {

CLI::Validator seconds_between(double least, double most) {
    const auto complaint = [least, most](const std::string& text) -> std::string {
        double seconds = 0;
        if (CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most) return "";
        return (std::ostringstream() << "must be from " << least << " to " << most << " seconds, not '"
                                     << text << "'")
            .str();
    };
    return {complaint, ""};
}

CLI::Validator number_between(uint64_t least, uint64_t most) {
    // The text is rewritten because the parser would take a leading 0 for octal.
    const auto complaint = [least, most](std::string& text) -> std::string {
        uint64_t value = 0;
        auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (err != std::errc() || end != text.data() + text.size() || value < least || value > most)
            return range_complaint(least, most, text);
        text = std::to_string(value);
        return "";
    };
    return {complaint, ""};
}

CLI::Validator size_in_bytes() {
    const auto complaint = [](std::string& text) -> std::string {
        constexpr std::string_view UNITS = "KMGT";
        const char* const end = text.data() + text.size();
        uint64_t value = 0;
        auto [unit, err] = std::from_chars(text.data(), end, value);
        const size_t power = unit == end ? 0 : UNITS.find(*unit) + 1;
        const bool is_size = err == std::errc() && (unit == end || (power > 0 && unit + 1 == end)) &&
                             value <= UINT64_MAX >> (10 * power);
        if (!is_size) return "must be a size such as 500M or 2G, not '" + text + "'";
        text = std::to_string(value << (10 * power));
        return "";
    };
    return {complaint, ""};
}

CLI::Validator not_empty() {
    return {[](const std::string& text) { return std::string(text.empty() ? "must not be empty" : ""); }, ""};
}

void restrict_to(CLI::Option& option, const std::vector<std::string>& choices) {
    const auto complaint = [choices](const std::string& text) -> std::string {
        if (std::find(choices.begin(), choices.end(), text) != choices.end()) return "";
        return choice_complaint(choices, text);
    };
    option.type_name(CLI::detail::join(choices, "|"))->check(CLI::Validator(complaint, ""));
}

}  // namespace brumectl
