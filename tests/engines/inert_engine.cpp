// The engine that does nothing. The broken libraries differ from it by one compile definition: INIT_ERROR,
// the text with which init fails; EVFD, what is given for a descriptor; or another name for a function. Other
// engines are linked with it and define what is weak here.

#include <brumecpd/engine_api.h>
#include <sys/eventfd.h>
#include <unistd.h>

#ifndef INIT_ERROR
#define INIT_ERROR ""
#endif
#ifndef EVFD
#define EVFD g_evfd
#endif

using Json::Value;
using std::string;
using std::vector;

int g_evfd = -1;

[[gnu::weak]] void corvo_api_cp_init(const corvo::api::InitConfig&, string& err) {
    err = INIT_ERROR;
    if (err.empty()) g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}
[[gnu::weak]] void corvo_api_cp_deinit(string&) {
    close(g_evfd);
}
void corvo_api_cp_get_evfd(int& fd, string&) {
    fd = EVFD;
}
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
[[gnu::weak]] void corvo_api_cp_coffee(const string&, const string&, const vector<uint32_t>&, string&,
                                       string&) {}
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
