#pragma once
// A classification as a page for a browser: shares of the protocols, their course, the numbers. It stands
// alone: nothing is loaded from anywhere, and it runs no script.

#include <string>
#include <vector>

#include "client/classify/classifier.h"

namespace brumectl::report {

std::string page(const std::vector<FileResult>& results);

}  // namespace brumectl::report
