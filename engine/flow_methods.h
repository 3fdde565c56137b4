#pragma once
// The methods that this engine brings along, "flows.summary" and so on, in the daemon's table. What they take
// and give is in openrpc-flows.json and docs/engine-flows.md.

#include <brumecpd/engine_rpc.h>

#include <memory>

#include "engine.h"

namespace corvo::engine {

class FlowMethods {
 public:
    /** Loads them into the table, until destroyed. A null table has none. `engine` must outlive this. */
    FlowMethods(RpcCommandsTable* table, Engine& engine);
    FlowMethods(const FlowMethods&) = delete;
    FlowMethods& operator=(const FlowMethods&) = delete;
    ~FlowMethods();

 private:
    RpcCommandsTable* m_table;
};

}  // namespace corvo::engine
