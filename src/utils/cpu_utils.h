#pragma once
// Facts about the processor.

#include <string>

namespace corvo {

class CpuUtils {
 public:
    /** Machine name, " @ " and "32 bit", which clients expect whatever the word size of the build. */
    static std::string Arch();
    /** Speed of the first listed processor in whole MHz; 0 if unknown. */
    static int GetCpuFreq();
};

}  // namespace corvo
