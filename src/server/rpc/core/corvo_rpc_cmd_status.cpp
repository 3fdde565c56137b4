// Returns one object with the state of server, engine and machine.

#include <json/value.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "infra/corvo_logger.h"
#include "infra/corvo_rpc_command.h"
#include "server/corvo_server.h"
#include "server/corvo_server_loader.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"
#include "utils/cpu_utils.h"
#include "utils/mem_utils.h"

namespace corvo {

namespace {

using server::Engine;
using server::Server;

constexpr int MIB_SHIFT = 20;

/** The current size and the largest one seen here so far, in MiB. */
void fill_size(Json::Value& out, long long bytes, uint32_t& max) {
    const auto current = static_cast<uint32_t>(bytes >> MIB_SHIFT);
    max = std::max(max, current);
    out[Key("current")] = current;
    out[Key("max")] = max;
}

}  // namespace

/** Served in every state of the engine. If any query to the library fails, the whole command fails. */
class RpcCmdStatus : public RpcCommand {
 public:
    RpcCmdStatus() : RpcCommand("status") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        Engine& engine = *Server::g_ptr->engine();
        Json::Value& result = res["result"];
        result[Key("mode")] = engine.get_mode_int();
        result[Key("uptime")] = static_cast<Json::UInt>(Server::g_ptr->get_uptime());
        result[Key("state")] = eng_state_to_str(engine.state());
        result[Key("logfile")] = Logger::get_log_filename();
        guarded(res, [&] {
            fill_proc_info(result);
            fill_plat_info(result);
            fill_ifs_info(result);
            fill_dp_info(result);
            fill_memory_info(result[Key("mem")]);
            fill_engine_info(result);
        });
        return CMD_OK;
    }

 private:
    void fill_proc_info(Json::Value& out) { out[Key("pid")] = static_cast<Json::Int>(getpid()); }

    void fill_plat_info(Json::Value& out) {
        // Neither changes while the system runs.
        static const std::string arch = CpuUtils::Arch();
        static const std::string release = [] {
            utsname names = {};
            uname(&names);
            return std::string(names.release);
        }();
        out[Key("arch")] = arch;
        out[Key("kernel")] = release;
    }

    void fill_ifs_info(Json::Value& out) {
        Engine& engine = *Server::g_ptr->engine();
        std::vector<std::string> interfaces;
        if (engine.state() >= Engine::STATE_ACTIVE) engine.get_interfaces(interfaces);
        out[Key("attached")] = to_json_array(interfaces);
    }

    void fill_dp_info(Json::Value& out) {
        Engine& engine = *Server::g_ptr->engine();
        std::vector<std::string> dps;
        if (engine.state() >= Engine::STATE_ACTIVE) engine.get_dps(dps);
        out[Key("dps")] = to_json_array(dps);
    }

    void fill_memory_info(Json::Value& out) {
        // The maximum over all requests since the server's start.
        static uint32_t max_virt_mib = 0;
        static uint32_t max_phy_mib = 0;

        struct sysinfo machine = {};
        sysinfo(&machine);
        out[Key("total_mem")] = static_cast<Json::UInt64>(machine.totalram >> MIB_SHIFT);
        out[Key("free_mem")] = static_cast<Json::UInt64>(machine.freeram >> MIB_SHIFT);
        const MemUtils::ProcessMem mem = MemUtils::get_process_mem();
        Json::Value& process = out[Key("process")];
        fill_size(process[Key("virt_mem")], mem.virt, max_virt_mib);
        fill_size(process[Key("phy_mem")], mem.resident, max_phy_mib);
    }

    void fill_engine_info(Json::Value& out) {
        Engine& engine = *Server::g_ptr->engine();
        out[Key("state")] = eng_state_to_str(engine.state());
        if (engine.state() >= Engine::STATE_ACTIVE) engine.get_version(out[Key("version")]);
        // Queried again, so that the list matches this version and state.
        fill_dp_info(out);
    }

    std::string eng_state_to_str(Engine::state_e state) { return server::engine_state_to_str(state); }
};

void add_status_commands(RpcComponent& component) {
    component.add(new RpcCmdStatus());
}

}  // namespace corvo
