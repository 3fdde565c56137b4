#pragma once
// Output of what runs on and on: it reaches its reader at once, and ends when there's no reader left.

#include "client/terminal.h"

namespace brumectl {

/** @throws Failure if the text can't be written */
void flush_or_fail(const Terminal& terminal);

}  // namespace brumectl
