#pragma once
// Text as diagnostics have it, for long answers: lines of figures. JSON has to escape the end of each.

#include <cstddef>
#include <string>

inline std::string long_text(size_t bytes) {
    std::string out;
    for (unsigned i = 0; out.size() < bytes; ++i) {
        out += "flow " + std::to_string(i) + " 10.0." + std::to_string(i % 32) +
               ".7:" + std::to_string(1024 + i * 37 % 30000) + " > 192.0.2." + std::to_string(i * 11 % 250) +
               ":443 TLS pkts=" + std::to_string(i * 3 % 1000) + "\n";
    }
    out.resize(bytes);
    return out;
}
