#pragma once
// RPC methods as objects, as the boundary to the engine library has them, and what the daemon's own commands
// use beside it. Nothing of this header's own is for libraries.

#include <brumecpd/engine_rpc.h>

#include <string>
#include <utility>

#include "utils/exception.h"

namespace corvo {

/** What the boundary's classes keep to themselves. */
class RpcTableView {
 public:
    static const std::string& name(const RpcCommand& command) { return command.m_name; }
    /** How many are loaded. */
    static size_t components(const RpcCommandsTable& table) { return table.m_components.size(); }
    /**
     * Whether a command that `lookup` once gave for `method` still is a loaded component's, though the key
     * may map to another one by now. `command` needn't be alive.
     */
    static bool has(const RpcCommandsTable& table, const RpcCommand* command, const std::string& method);
};

/**
 * Member `name`, or the null value where it, or `params` altogether, is absent.
 * @throws corvo::Exception "internal parsing error" if `params` is neither null nor an object
 */
const Json::Value& optional_field(const Json::Value& params, const char* name);

/** Logs `msg` and ends the command with CMD_EXEC_FAILED. */
[[noreturn]] void fail_logged(Json::Value& res, const std::string& msg);

/** Runs a command's work. A corvo::Exception, a failed field check included, is logged and ends the command.
 */
template <class Work>
void guarded(Json::Value& res, Work&& work) {
    try {
        std::forward<Work>(work)();
    } catch (const Exception& e) {
        fail_logged(res, e.what());
    }
}

}  // namespace corvo
