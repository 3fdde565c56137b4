#pragma once
// RPC methods as objects, from the boundary to engine libraries, plus helpers for the daemon's own commands.
// What this header adds isn't for libraries.

#include <brumecpd/engine_rpc.h>

#include <string>
#include <utility>

#include "utils/exception.h"

namespace corvo {

/** Access to private parts of the boundary's classes. */
class RpcTableView {
 public:
    static const std::string& name(const RpcCommand& command) { return command.m_name; }
    /** Number of loaded components. */
    static size_t components(const RpcCommandsTable& table) { return table.m_components.size(); }
    /**
     * Whether a command that `lookup` once returned for `method` still belongs to a loaded component, even if
     * the key now maps to another one. `command` needn't be alive.
     */
    static bool has(const RpcCommandsTable& table, const RpcCommand* command, const std::string& method);
};

/**
 * Where a command may leave the JSON text of a long result instead of "result" itself, which as a value would
 * take many times as long. It must be what FastWriter would write, with its newline.
 */
inline constexpr const char* RESULT_TEXT = "result as text";

/**
 * Member `name`, or the null value if the member or `params` itself is absent.
 * Throws corvo::Exception "internal parsing error" if `params` is neither null nor an object.
 */
const Json::Value& optional_field(const Json::Value& params, const char* name);

/** Logs `msg` and ends the command with CMD_EXEC_FAILED. */
[[noreturn]] void fail_logged(Json::Value& res, const std::string& msg);

/**
 * Runs a command's work. A corvo::Exception, including a failed field check, is logged and ends the command.
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
