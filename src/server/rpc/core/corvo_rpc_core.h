#pragma once
// The component that gives the daemon its RPC surface. All that the server knows of its methods.

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** Has no name, so each method's key is the command's bare name. */
class RpcCmdsCore : public RpcComponent {
 public:
    RpcCmdsCore();
};

}  // namespace corvo
