#include "server/corvo_server_loader_api.h"

#include <iterator>
#include <type_traits>

namespace corvo::server {

namespace {

template <auto Member>
void store(EngineApi& api, void* address) {
    auto& slot = api.*Member;
    slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(address);
}

#define ENGINE_SYMBOL(name) \
    { "corvo_api_cp_" #name, store<&EngineApi::name> }
constexpr EngineSymbol SYMBOLS[] = {
    ENGINE_SYMBOL(activate),
    ENGINE_SYMBOL(deactivate),
    ENGINE_SYMBOL(push_pkts),
    ENGINE_SYMBOL(coffee),
    ENGINE_SYMBOL(get_version),
    ENGINE_SYMBOL(intf_attach),
    ENGINE_SYMBOL(intf_detach),
    ENGINE_SYMBOL(intf_get),
    ENGINE_SYMBOL(tick),
    ENGINE_SYMBOL(collector_enable),
    ENGINE_SYMBOL(collector_disable),
    ENGINE_SYMBOL(get_collectors),
    ENGINE_SYMBOL(collector_get_sample),
    ENGINE_SYMBOL(health_get),
    ENGINE_SYMBOL(health_conf_get),
    ENGINE_SYMBOL(health_conf_set),
    ENGINE_SYMBOL(collector_set_interval),
    ENGINE_SYMBOL(collect_set_exporter),
    ENGINE_SYMBOL(get_dps),
    ENGINE_SYMBOL(init),
    ENGINE_SYMBOL(deinit),
    ENGINE_SYMBOL(get_evfd),
};
#undef ENGINE_SYMBOL
static_assert(std::size(SYMBOLS) * sizeof(void*) == sizeof(EngineApi),
              "every entry of the table is looked up");

}  // namespace

std::span<const EngineSymbol> engine_symbols() {
    return SYMBOLS;
}

}  // namespace corvo::server
