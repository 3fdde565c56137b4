#pragma once
// The text of a failure, to be compared with the expected one.

#include <string>

#include "utils/exception.h"

namespace test {

/** Empty if it doesn't fail. */
template <typename Failure = corvo::Exception, typename Work>
std::string error_of(Work&& work) {
    try {
        work();
    } catch (const Failure& e) {
        return e.what();
    }
    return "";
}

}  // namespace test
