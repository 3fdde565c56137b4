#pragma once
// Times on the command line.

#include <CLI/Validators.hpp>
#include <cstdlib>
#include <string>

namespace brumectl {

/** The bounds as they are told. Not CLI::Range: it lets "nan" through. */
inline CLI::Validator seconds_between(const std::string& least, const std::string& most) {
    auto judge = [least, most](const std::string& text) -> std::string {
        char* end = nullptr;
        const double seconds = std::strtod(text.c_str(), &end);
        if (!text.empty() && *end == '\0' && seconds >= std::atof(least.c_str()) &&
            seconds <= std::atof(most.c_str()))
            return "";
        return "takes " + least + " to " + most + " seconds, not '" + text + "'";
    };
    return CLI::Validator(judge, "");
}

}  // namespace brumectl
