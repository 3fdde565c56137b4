#pragma once
// The methods that this engine adds to the daemon's table, "flows.summary" and so on. Their parameters and
// results are described in openrpc-flows.json and docs/engine-flows.md.

#include <brumecpd/engine_rpc.h>

#include <memory>

#include "engine.h"

namespace corvo::engine {

class FlowMethods {
 public:
    /**
     * Loads the methods into the table until destroyed. Does nothing if `table` is null. `engine` must
     * outlive this.
     */
    FlowMethods(RpcCommandsTable* table, Engine& engine);
    FlowMethods(const FlowMethods&) = delete;
    FlowMethods& operator=(const FlowMethods&) = delete;
    ~FlowMethods();

 private:
    RpcCommandsTable* m_table;
};

}  // namespace corvo::engine
