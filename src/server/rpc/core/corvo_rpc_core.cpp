#include "server/rpc/core/corvo_rpc_core.h"

#include "server/rpc/core/corvo_rpc_cmd_basic.h"
#include "server/rpc/core/corvo_rpc_cmd_coffee.h"
#include "server/rpc/core/corvo_rpc_cmd_collect.h"
#include "server/rpc/core/corvo_rpc_cmd_engine.h"
#include "server/rpc/core/corvo_rpc_cmd_inject.h"
#include "server/rpc/core/corvo_rpc_cmd_log.h"
#include "server/rpc/core/corvo_rpc_cmd_mt.h"
#include "server/rpc/core/corvo_rpc_cmd_notif.h"
#include "server/rpc/core/corvo_rpc_cmd_status.h"

namespace corvo {

RpcCmdsCore::RpcCmdsCore() : RpcComponent("") {
    add(new RpcCmdPing());
    add(new RpcCmdEcho());
    add(new RpcCmdShutdown());
    add(new RpcCmdGetCmds());
    add(new RpcCmdStatus());
    add(new RpcCmdLoad());
    add(new RpcCmdUnload());
    add(new RpcCmdActivate());
    add(new RpcCmdDeactivate());
    add(new RpcCmdMemtraceInfo());
    add(new RpcCmdPushPCAP());
    add(new RpcCmdCoffee());
    add(new RpcCmdAttach());
    add(new RpcCmdDetach());
    add(new RpcCmdLog("default"));
    add(new RpcCmdCollect());
    add(new RpcCmdHealth());
    add(new RpcCmdGetEvents());
    add(new RpcCmdNotifs());
}

}  // namespace corvo
