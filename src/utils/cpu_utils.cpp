#include "utils/cpu_utils.h"

#include <sys/utsname.h>

#include <cstdlib>
#include <fstream>

namespace corvo {

std::string CpuUtils::Arch() {
    utsname names{};
    uname(&names);
    return std::string(names.machine) + " @ 32 bit";
}

int CpuUtils::GetCpuFreq() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
        size_t colon = line.find(':');
        if (colon == std::string::npos || line.find("cpu MHz") == std::string::npos) continue;
        return static_cast<int>(std::strtol(line.c_str() + colon + 1, nullptr, 10));
    }
    return 0;
}

}  // namespace corvo
