#include "server/rpc/core/corvo_rpc_core.h"

#include "server/rpc/core/corvo_rpc_cmds.h"

namespace corvo {

RpcCmdsCore::RpcCmdsCore() : RpcComponent("") {
    add_basic_commands(*this);
    add_status_commands(*this);
    add_engine_commands(*this);
    add_memtrace_commands(*this);
    add_inject_commands(*this);
    add_coffee_commands(*this);
    add_interface_commands(*this);
    add_log_commands(*this);
    add_collect_commands(*this);
    add_events_commands(*this);
    add_notif_commands(*this);
}

}  // namespace corvo
