// The memory tracer's data; refused in builds that have no tracer.

#include "infra/exports/corvo_mt.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"

namespace corvo {

namespace callgraph {

/**
 * Seam for a build that traces its memory: what it knows about its allocations, as a call graph. A regular
 * build traces nothing, so there is nothing to write.
 */
class CallGraph {
 public:
    /** Writes the graph to `out`. Without a tracer, `out` is unchanged. */
    void generate(Json::Value& /*out*/, int /*depth*/, unsigned /*threshold*/) {}
};

}  // namespace callgraph

namespace {

constexpr uint32_t DEFAULT_THRESHOLD = 10240;
constexpr uint8_t DEFAULT_DEPTH = 1;

}  // namespace

class RpcCmdMemtraceInfo : public RpcCommand {
 public:
    RpcCmdMemtraceInfo() : RpcCommand("mt") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            if (!corvo_mt_supported()) generate_execute_err(res, "Mem tracing is not built into this image");
            const auto threshold =
                optional_param<uint32_t>(*this, params, "threshold", DEFAULT_THRESHOLD, res);
            const auto depth = optional_param<uint8_t>(*this, params, "depth", DEFAULT_DEPTH, res);
            dump_bts(res["result"]["cp"], threshold, depth, res);
        });
        return CMD_OK;
    }

 private:
    void dump_bts(Json::Value& out, unsigned threshold, unsigned char depth, Json::Value&) {
        callgraph::CallGraph graph;
        graph.generate(out["bts"], depth, threshold);
    }
};

void add_memtrace_commands(RpcComponent& component) {
    component.add(new RpcCmdMemtraceInfo());
}

}  // namespace corvo
