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

/** A command that can write the text of a long result itself, which a value would take many times as long
 * for. */
class RpcTextCommand : public RpcCommand {
 public:
    using RpcCommand::RpcCommand;

    /** The JSON text of the last run's result. Empty if the result is in `res`. Valid once. */
    std::string take_text() { return std::exchange(m_text, {}); }

 protected:
    /** To be set last, by a run that succeeds and leaves no "result" in `res`: as FastWriter would write it.
     */
    void set_text(std::string&& text) { m_text = std::move(text); }

 private:
    std::string m_text;
};

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
