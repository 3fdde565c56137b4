#pragma once
// What the processor says of itself.

#include <string>

namespace corvo {

class CpuUtils {
 public:
    /** Machine name, " @ " and "32 bit", which clients expect whatever the word size of the build. */
    static std::string Arch();
    /** Whole MHz of the first processor listed; 0 if unknown. */
    static int GetCpuFreq();
};

}  // namespace corvo
