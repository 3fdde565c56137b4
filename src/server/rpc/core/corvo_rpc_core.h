#pragma once
// The component with the daemon's own methods. This is all that the server knows about them.

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** Has no name, so each method's key is just the command's name. */
class RpcCmdsCore : public RpcComponent {
 public:
    RpcCmdsCore();
};

}  // namespace corvo
