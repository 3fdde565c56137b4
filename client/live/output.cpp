#include "client/live/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "client/failure.h"

namespace brumectl {

void flush_or_fail(const Terminal& terminal) {
    if (fflush(terminal.stream()) == 0 && ferror(terminal.stream()) == 0) return;
    throw Failure(std::string("the output can't be written: ") + strerror(errno));
}

}  // namespace brumectl
