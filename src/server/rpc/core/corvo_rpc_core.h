#pragma once
// The component that gives the daemon its RPC surface. Its constructor is the list of all methods.

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** Has no name, so each method's key is the command's bare name. */
class RpcCmdsCore : public RpcComponent {
 public:
    RpcCmdsCore();
};

}  // namespace corvo
