#pragma once
// A classification as an HTML page: the protocols' shares, their course, the numbers. It is self-contained:
// it loads nothing and runs no scripts.

#include <string>
#include <vector>

#include "client/classify/classifier.h"

namespace brumectl::report {

std::string page(const std::vector<FileResult>& results);

}  // namespace brumectl::report
