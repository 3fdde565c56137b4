#pragma once
// The families of methods, one source file each. Only RpcCmdsCore calls these functions; its order of calls
// is the order of the methods in the component.

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** ping, echo, shutdown, cmds. */
void add_basic_commands(RpcComponent& component);
/** events. */
void add_events_commands(RpcComponent& component);
/** status. */
void add_status_commands(RpcComponent& component);
/** load, unload, activate, deactivate. */
void add_engine_commands(RpcComponent& component);
/** attach, detach. */
void add_interface_commands(RpcComponent& component);
/** mt. */
void add_memtrace_commands(RpcComponent& component);
/** push_pcap. */
void add_inject_commands(RpcComponent& component);
/** coffee. */
void add_coffee_commands(RpcComponent& component);
/** log. */
void add_log_commands(RpcComponent& component);
/** collect, health. */
void add_collect_commands(RpcComponent& component);
/** notifications. */
void add_notif_commands(RpcComponent& component);

}  // namespace corvo
