#pragma once
// Check of an option that takes seconds. Not CLI::Range: it lets "nan" through.

#include <CLI/CLI.hpp>
#include <sstream>
#include <string>

namespace brumectl {

inline CLI::Validator seconds_between(double least, double most) {
    const auto complaint = [least, most](const std::string& text) -> std::string {
        double seconds = 0;
        if (CLI::detail::lexical_cast(text, seconds) && seconds >= least && seconds <= most) return "";
        return (std::ostringstream() << "takes " << least << " to " << most << " seconds, not '" << text
                                     << "'")
            .str();
    };
    return {complaint, ""};
}

}  // namespace brumectl
