#pragma once
// The functions of a loaded engine library. In the daemon, only Engine has such a table, and only its source
// calls into it.

#include <brumecpd/engine_api.h>

#include <span>

namespace corvo::server {

/** The 22 functions of the library; all null while none is loaded. */
struct EngineApi {
    decltype(&corvo_api_cp_activate) activate = nullptr;
    decltype(&corvo_api_cp_deactivate) deactivate = nullptr;
    decltype(&corvo_api_cp_push_pkts) push_pkts = nullptr;
    decltype(&corvo_api_cp_coffee) coffee = nullptr;
    decltype(&corvo_api_cp_get_version) get_version = nullptr;
    decltype(&corvo_api_cp_intf_attach) intf_attach = nullptr;
    decltype(&corvo_api_cp_intf_detach) intf_detach = nullptr;
    decltype(&corvo_api_cp_intf_get) intf_get = nullptr;
    decltype(&corvo_api_cp_tick) tick = nullptr;
    decltype(&corvo_api_cp_collector_enable) collector_enable = nullptr;
    decltype(&corvo_api_cp_collector_disable) collector_disable = nullptr;
    decltype(&corvo_api_cp_collector_set_interval) collector_set_interval = nullptr;
    decltype(&corvo_api_cp_get_collectors) get_collectors = nullptr;
    decltype(&corvo_api_cp_collector_get_sample) collector_get_sample = nullptr;
    decltype(&corvo_api_cp_health_get) health_get = nullptr;
    decltype(&corvo_api_cp_health_conf_get) health_conf_get = nullptr;
    decltype(&corvo_api_cp_health_conf_set) health_conf_set = nullptr;
    decltype(&corvo_api_cp_get_dps) get_dps = nullptr;
    decltype(&corvo_api_cp_init) init = nullptr;
    decltype(&corvo_api_cp_deinit) deinit = nullptr;
    decltype(&corvo_api_cp_get_evfd) get_evfd = nullptr;
    decltype(&corvo_api_cp_collect_set_exporter) collect_set_exporter = nullptr;
};

struct EngineSymbol {
    const char* name;                              ///< as exported by the library
    void (*store)(EngineApi& api, void* address);  ///< stores the address in its entry
};

/** All 22, in lookup order: for a library that lacks several, the first is reported. */
std::span<const EngineSymbol> engine_symbols();

}  // namespace corvo::server
