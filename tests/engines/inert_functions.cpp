// The 19 functions of an engine that does nothing. Together with inert_life.cpp it is the base of the broken
// libraries: each differs from a whole one by one compile definition.

#include <brumecpd/engine_api.h>

using Json::Value;
using std::string;
using std::vector;

void corvo_api_cp_activate(const corvo::api::ActivateConfig&, string&) {}
void corvo_api_cp_deactivate(string&) {}
int corvo_api_cp_tick(string&) {
    return 1000;
}
void corvo_api_cp_push_pkts(const string&, vector<corvo::api::pkt_>& pkts, string&, bool) {
    for (auto& pkt : pkts) {
        pkt.cls = 1;
        pkt.protocol = "bench";
    }
}
void corvo_api_cp_coffee(const string&, const string&, const vector<uint32_t>&, string&, string&) {}
void corvo_api_cp_get_version(Value&, string&) {}
void corvo_api_cp_get_dps(vector<string>&, string&) {}
void corvo_api_cp_intf_attach(const string&, string&) {}
void corvo_api_cp_intf_detach(const string&, string&) {}
void corvo_api_cp_intf_get(vector<string>&, string&) {}
void corvo_api_cp_collector_enable(const string&, string&) {}
void corvo_api_cp_collector_disable(const string&, string&) {}
void corvo_api_cp_collector_set_interval(const string&, uint64_t, string&) {}
void corvo_api_cp_get_collectors(Value&, string&) {}
void corvo_api_cp_collector_get_sample(const string&, Value&, string&) {}
void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig&, string&) {}
void corvo_api_cp_health_get(Value&, bool, string&) {}
void corvo_api_cp_health_conf_get(Value&, string&) {}
void corvo_api_cp_health_conf_set(const Value&, string&) {}
