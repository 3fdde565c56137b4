#include <utility>

#include "engine/pushed.h"

namespace {
std::vector<std::string> g_notices;
}

void corvo::notif::__notify(const std::string& feature, const std::string& name, Severity severity,
                            const std::string& desc) {
    g_notices.push_back(feature + " " + name + " " + std::to_string(severity) + ": " + desc);
}

std::vector<std::string> test::take_notices() {
    return std::exchange(g_notices, {});
}
