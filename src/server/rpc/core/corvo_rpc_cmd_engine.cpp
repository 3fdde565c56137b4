// The methods that change the engine's state. A wrong parameter, a state that forbids the operation and a
// failure of the library all end as CMD_EXEC_FAILED, except for `path` and `cpaddr` of `load`.

#include <brumecpd/engine_api.h>
#include <json/value.h>

#include <stdexcept>
#include <string>

#include "infra/corvo_rpc_command.h"
#include "infra/corvo_version.h"
#include "server/corvo_server.h"
#include "server/corvo_server_defaults.h"
#include "server/corvo_server_loader.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"
#include "utils/net_utils.h"

namespace corvo {

namespace {

using server::Server;

constexpr uint16_t MAX_DP_WORKERS = 128;

/** False unless the whole text is a hexadecimal number of at most 64 bits; the lower 32 are used. */
bool parse_hex(const std::string& text, uint32_t& out) {
    try {
        size_t consumed = 0;
        out = static_cast<uint32_t>(std::stoull(text, &consumed, 16));
        return consumed == text.size();
    } catch (const std::logic_error&) {
        return false;
    }
}

/** The interface that the client means. "default" is the one with the route to the Internet. */
std::string intf_param(RpcCommand& command, const Json::Value& params, Json::Value& res) {
    if (Version::g_in_slave_mode)
        throw Exception("'" + RpcTableView::name(command) + "' not supported in slave mode");
    auto intf = required_param<std::string>(command, params, "intf", res);
    if (intf != "default") return intf;
    intf = NetUtils::ip_to_ifname(NetUtils::get_src_ip("8.8.8.8", 53));
    if (intf.empty()) command.generate_execute_err(res, "unable to resolve default interface");
    return intf;
}

}  // namespace

class RpcCmdLoad : public RpcCommand {
 public:
    RpcCmdLoad() : RpcCommand("load") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        // If `params` can't hold members, any read throws; here that fails the command instead of the server.
        guarded(res, [&] { optional_field(params, "path"); });
        const auto path =
            optional_param<std::string>(*this, params, "path", server::default_engine_path, res);
        validate_path(path, res);
        api::InitConfig config;
        config.cp_addr = optional_param<std::string>(*this, params, "cpaddr", server::default_cpaddr, res);
        config.cmds = &Server::g_ptr->cmds();
        guarded(res, [&] {
            parse_shm(params, config, res);
            Server::g_ptr->engine()->load_engine(path, config);
        });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }

 private:
    /** Fills the shared-memory members of `config`; automatic if `params` has no `shm`. */
    void parse_shm(const Json::Value& params, api::InitConfig& config, Json::Value& res) {
        config.shm_type = api::SHM_AUTO;
        const Json::Value& shm = optional_field(params, "shm");
        if (!shm.isNull()) {
            check_field_type(params, "shm", TYPE_OBJECT, res);
            const std::string type = parse_choice(shm, "type", {"auto", "devmem"}, res);
            if (type == "devmem") config.shm_type = api::SHM_DEVMEM;
        }
        if (Version::g_bare_metal && config.shm_type == api::SHM_AUTO)
            generate_execute_err(res, "Auto SHM configuration is not supported on bare metal mode");
        if (config.shm_type == api::SHM_DEVMEM && Server::g_ptr->engine()->get_mode_int() == "kernel")
            generate_execute_err(res, "devmem SHM configuration is not supported on kernel mode");
        if (config.shm_type == api::SHM_AUTO) return;

        config.shm_dev = optional_param<std::string>(*this, shm, "dev", "/dev/mem", res);
        config.shm_size = required_param<uint32_t>(*this, shm, "size", res);
        const auto addr = required_param<std::string>(*this, shm, "addr", res);
        if (!parse_hex(addr, config.shm_addr)) generate_execute_err(res, "'addr' is not a valid HEX value");
    }
};

class RpcCmdUnload : public RpcCommand {
 public:
    RpcCmdUnload() : RpcCommand("unload") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        guarded(res, [] { Server::g_ptr->engine()->unload_engine(); });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

class RpcCmdActivate : public RpcCommand {
 public:
    RpcCmdActivate() : RpcCommand("activate") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            check_field_type(params, "resources", TYPE_OBJECT, res);
            const Json::Value& resources = params["resources"];
            api::ActivateConfig config;
            config.max_flows = required_param<uint32_t>(*this, resources, "max_flows", res);
            config.writable_shm = optional_param<bool>(*this, resources, "writable_shm", false, res);
            config.dp_workers = optional_param<uint16_t>(*this, resources, "dp_workers", 1, res);
            if (Version::g_in_slave_mode && resources.isMember("dp_workers"))
                throw Exception("'dp_workers' is controlled via DP API in slave mode");
            if (config.dp_workers > MAX_DP_WORKERS) throw Exception("'dp_workers' is limited to 128");
            Server::g_ptr->engine()->activate(config);
        });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

class RpcCmdDeactivate : public RpcCommand {
 public:
    RpcCmdDeactivate() : RpcCommand("deactivate") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        guarded(res, [] { Server::g_ptr->engine()->deactivate(); });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

class RpcCmdAttach : public RpcCommand {
 public:
    RpcCmdAttach() : RpcCommand("attach") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] { Server::g_ptr->engine()->attach(intf_param(*this, params, res)); });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

class RpcCmdDetach : public RpcCommand {
 public:
    RpcCmdDetach() : RpcCommand("detach") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] { Server::g_ptr->engine()->detach(intf_param(*this, params, res)); });
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

void add_engine_commands(RpcComponent& component) {
    component.add(new RpcCmdLoad());
    component.add(new RpcCmdUnload());
    component.add(new RpcCmdActivate());
    component.add(new RpcCmdDeactivate());
}

void add_interface_commands(RpcComponent& component) {
    component.add(new RpcCmdAttach());
    component.add(new RpcCmdDetach());
}

}  // namespace corvo
