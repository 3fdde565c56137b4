#pragma once
// The methods that the loaded engine brings along, as far as it describes them: among the methods that `cmds`
// lists there is then one "NAME.describe", which answers with a document like the built-in one. What such a
// document says is harmless here, and nothing in it refers to anything else.

#include <memory>

#include "client/text/method_table.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** Null if there are none, or none that can be understood. @throws as Daemon::call */
std::unique_ptr<MethodTable> engine_methods(Daemon& daemon);

}  // namespace brumectl
