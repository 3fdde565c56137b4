#pragma once
// The methods of the loaded engine, as far as it describes them: if `cmds` lists a method "NAME.describe", it
// returns a document like the built-in one. The document's texts are made harmless here, and its references
// are resolved.

#include <memory>

#include "client/text/method_table.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** Null if there are none, or none that can be understood. Throws like Daemon::call. */
std::unique_ptr<MethodTable> engine_methods(Daemon& daemon);

}  // namespace brumectl
