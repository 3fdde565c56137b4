// An engine that names a packet's protocol after its ports and remembers nothing. It is deliberately small:
// everything an engine needs is here, plus one method of its own, which you may leave out.

#include <brumecpd/engine_api.h>
#include <brumecpd/engine_notify.h>
#include <brumecpd/engine_rpc.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

using Json::Value;
using std::string;
using std::vector;

namespace {

struct Port {
    uint16_t number;
    uint32_t cls;  ///< never 0, which means "not classified"
    const char* protocol;
};
constexpr Port PORTS[] = {
    {22, 1, "SSH"}, {53, 2, "DNS"}, {80, 3, "HTTP"}, {123, 4, "NTP"}, {443, 5, "TLS"},
};

/** What the daemon calls to make an engine forget its flows. This one has none, so these do nothing. */
constexpr const char* FORGET[] = {"dp.veld.sui_lut_remove_all_links", "dp.ft.sui_ft_kill_all_flows"};

constexpr const char* NO_COLLECTORS = "this engine has no collectors";

/** The daemon calls from one thread and never concurrently, so plain variables are enough. */
int g_evfd = -1;
bool g_active = false;
corvo::RpcCommandsTable* g_cmds = nullptr;

const Port* port_of(unsigned number) {
    for (const Port& port : PORTS)
        if (port.number == number) return &port;
    return nullptr;
}

const Port* port_at(const unsigned char* at) {
    return port_of(static_cast<unsigned>(at[0] << 8 | at[1]));
}

/** The frame's contents can't be trusted: nothing beyond `len` is read. */
void classify(corvo::api::pkt_& pkt) {
    if (pkt.l4_off < pkt.l3_off || pkt.l4_off + 4 > pkt.len) {
        pkt.error = corvo::api::PKT_TRIMMED_L3;
        return;
    }
    const unsigned char* ports = pkt.data + pkt.l4_off;
    const Port* port = port_at(ports + 2);
    if (!port) port = port_at(ports);
    if (!port) return;
    pkt.cls = port->cls;
    pkt.protocol = port->protocol;
    pkt.visibility = 25;  // a guess
}

/** The method "ports.name": {"port": 53} returns {"protocol": "DNS"}. */
class NameCommand : public corvo::RpcCommand {
 public:
    NameCommand() : RpcCommand("name") {}

 private:
    int _run(const string&, const Value& params, Value& res) override {
        // If `params` is neither an object nor absent, the checks throw an exception that would end
        // the daemon.
        if (!params.isNull() && !params.isObject()) generate_parse_err(res, "'params' must be an object");
        check_field_type(params, "port", TYPE_UINT16, res);
        const Port* port = port_of(params["port"].asUInt());
        if (!port) generate_execute_err(res, "no protocol has port " + params["port"].asString());
        res["result"]["protocol"] = port->protocol;
        return corvo::CMD_OK;
    }
};

constexpr const char* COMPONENT = "ports";

}  // namespace

// --- life

void corvo_api_cp_init(const corvo::api::InitConfig& config, string& err) {
    g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (g_evfd < 0) {
        err = string("no descriptor: ") + strerror(errno);
        return;
    }
    auto component = std::make_unique<corvo::RpcComponent>(COMPONENT);
    component->add(new NameCommand);
    g_cmds = config.cmds;
    g_cmds->load_component(component.release());
}
void corvo_api_cp_deinit(string&) {
    // Its code is unloaded with this library, so remove and destroy it here.
    const std::unique_ptr<corvo::RpcComponent> component(g_cmds->lookup_component(COMPONENT));
    g_cmds->unload_component(COMPONENT);
    close(g_evfd);
    g_evfd = -1;
}
void corvo_api_cp_activate(const corvo::api::ActivateConfig&, string&) {
    g_active = true;
    // Other programs than the daemon don't provide it.
    if (corvo::notif::__notify)
        corvo::notif::__notify("engine", "port_engine.started", corvo::notif::SEV_INFO, "ports are watched");
}
void corvo_api_cp_deactivate(string&) {
    g_active = false;
}
int corvo_api_cp_tick(string&) {
    uint64_t count = 0;
    // Otherwise the descriptor stays readable, and the next tick comes at once.
    [[maybe_unused]] const ssize_t size = read(g_evfd, &count, sizeof(count));
    return 1000;
}
void corvo_api_cp_get_evfd(int& fd, string&) {
    fd = g_evfd;
}

// --- packets and data paths

void corvo_api_cp_push_pkts(const string&, vector<corvo::api::pkt_>& pkts, string&, bool extended) {
    for (corvo::api::pkt_& pkt : pkts) {
        classify(pkt);
        if (extended && pkt.cls != 0) pkt.tph = {"eth", pkt.protocol};
    }
}
void corvo_api_cp_coffee(const string&, const string& func, const vector<uint32_t>&, string& result,
                         string& err) {
    if (std::find(std::begin(FORGET), std::end(FORGET), func) != std::end(FORGET))
        result = "0";
    else
        err = "unknown function '" + func + "'";
}
void corvo_api_cp_get_version(Value& out, string&) {
    out["name"] = "port_engine";
    out["version"] = "1";
}
void corvo_api_cp_get_dps(vector<string>& out, string&) {
    if (g_active) out.emplace_back("dp0");
}

// --- interfaces: packets come by push alone

void corvo_api_cp_intf_attach(const string& ifname, string& err) {
    err = "'" + ifname + "': this engine captures nothing";
}
void corvo_api_cp_intf_detach(const string& ifname, string& err) {
    err = "'" + ifname + "' isn't attached";
}
void corvo_api_cp_intf_get(vector<string>&, string&) {}

// --- collectors, exporter and health

void corvo_api_cp_collector_enable(const string&, string& err) {
    err = NO_COLLECTORS;
}
void corvo_api_cp_collector_disable(const string&, string& err) {
    err = NO_COLLECTORS;
}
void corvo_api_cp_collector_set_interval(const string&, uint64_t, string& err) {
    err = NO_COLLECTORS;
}
void corvo_api_cp_get_collectors(Value& out, string&) {
    out["collectables"] = Value(Json::arrayValue);
    out["exporter"] = Value();
}
void corvo_api_cp_collector_get_sample(const string&, Value&, string& err) {
    err = NO_COLLECTORS;
}
void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig&, string& err) {
    err = NO_COLLECTORS;
}
void corvo_api_cp_health_get(Value& out, bool, string&) {
    out["active"] = g_active;
}
void corvo_api_cp_health_conf_get(Value& out, string&) {
    out = Value(Json::objectValue);
}
void corvo_api_cp_health_conf_set(const Value& conf, string& err) {
    if (!conf.empty()) err = "nothing of health can be configured";
}
