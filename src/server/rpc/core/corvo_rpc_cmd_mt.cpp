#include "server/rpc/core/corvo_rpc_cmd_mt.h"

#include "infra/corvo_mt.h"
#include "server/rpc/core/corvo_callgraph.h"
#include "server/rpc/core/corvo_rpc_values.h"

namespace corvo {

namespace {

constexpr uint32_t DEFAULT_THRESHOLD = 10240;
constexpr uint8_t DEFAULT_DEPTH = 1;

}  // namespace

int RpcCmdMemtraceInfo::_run(const std::string&, const Json::Value& params, Json::Value& res) {
    guarded(res, [&] {
        if (!corvo_mt_supported()) generate_execute_err(res, "Mem tracing is not built into this image");
        const auto threshold = optional_param<uint32_t>(*this, params, "threshold", DEFAULT_THRESHOLD, res);
        const auto depth = optional_param<uint8_t>(*this, params, "depth", DEFAULT_DEPTH, res);
        dump_bts(res["result"]["cp"], threshold, depth, res);
    });
    return CMD_OK;
}

void RpcCmdMemtraceInfo::dump_bts(Json::Value& out, unsigned threshold, unsigned char depth, Json::Value&) {
    callgraph::CallGraph graph;
    graph.generate(out["bts"], depth, threshold);
}

}  // namespace corvo
