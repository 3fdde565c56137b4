// The library's entry points: each hands its call to the engine and turns any exception into an error text.

#include <brumecpd/engine_api.h>

#include <exception>
#include <memory>
#include <new>

#include "engine.h"
#include "engine_error.h"
#include "flow_methods.h"

namespace {

using corvo::engine::Engine;
using corvo::engine::Error;

/** Everything that lives from init to deinit. */
struct Loaded {
    explicit Loaded(const corvo::api::InitConfig& config)
        : engine(config, corvo::engine::Options::load()), methods(config.cmds, engine) {}

    Engine engine;
    corvo::engine::FlowMethods methods;
};
std::unique_ptr<Loaded> g_loaded;

void fail(std::string& err, const char* text) noexcept {
    try {
        err = text && *text ? text : "unknown error";
    } catch (...) {
        err.assign(1, '?');  // short enough not to allocate
    }
}

/** No exception may leave the library. */
template <typename Work>
void guarded(std::string& err, Work work) noexcept {
    try {
        work();
    } catch (const std::bad_alloc&) {
        fail(err, "out of memory");
    } catch (const std::exception& e) {
        fail(err, e.what());
    } catch (...) {
        fail(err, nullptr);
    }
}

Engine& engine() {
    if (!g_loaded) throw Error("the engine isn't initialised");
    return g_loaded->engine;
}

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string& err) {
    guarded(err, [&] {
        if (g_loaded) throw Error("the engine is already initialised");
        g_loaded = std::make_unique<Loaded>(config);
    });
}

void corvo_api_cp_deinit(std::string& err) {
    guarded(err, [&] {
        engine();
        g_loaded.reset();
    });
}

void corvo_api_cp_activate(const corvo::api::ActivateConfig& config, std::string& err) {
    guarded(err, [&] { engine().activate(config); });
}

void corvo_api_cp_deactivate(std::string& err) {
    guarded(err, [&] { engine().deactivate(); });
}

int corvo_api_cp_tick(std::string& err) {
    int delay_ms = -1;
    guarded(err, [&] { delay_ms = engine().tick(err); });
    return delay_ms;
}

void corvo_api_cp_get_evfd(int& fd, std::string& err) {
    guarded(err, [&] { fd = engine().event_fd(); });
}

void corvo_api_cp_push_pkts(const std::string& dpaddr, std::vector<corvo::api::pkt_>& pkts, std::string& err,
                            bool extended) {
    guarded(err, [&] { engine().push(dpaddr, pkts, extended); });
}

void corvo_api_cp_coffee(const std::string& dpaddr, const std::string& func,
                         const std::vector<uint32_t>& args, std::string& result, std::string& err) {
    guarded(err, [&] { result = engine().coffee(dpaddr, func, args); });
}

void corvo_api_cp_get_version(Json::Value& out, std::string& err) {
    guarded(err, [&] { out = Engine::version(); });
}

void corvo_api_cp_get_dps(std::vector<std::string>& out, std::string& err) {
    guarded(err, [&] {
        engine();
        out.push_back(Engine::data_path_name());
    });
}

void corvo_api_cp_intf_attach(const std::string& ifname, std::string& err) {
    guarded(err, [&] { engine().attach(ifname); });
}

void corvo_api_cp_intf_detach(const std::string& ifname, std::string& err) {
    guarded(err, [&] { engine().detach(ifname); });
}

void corvo_api_cp_intf_get(std::vector<std::string>& out, std::string& err) {
    guarded(err, [&] {
        for (std::string& name : engine().attached())
            out.push_back(std::move(name));
    });
}

void corvo_api_cp_collector_enable(const std::string& component, std::string& err) {
    guarded(err, [&] { engine().enable_collector(component); });
}

void corvo_api_cp_collector_disable(const std::string& component, std::string& err) {
    guarded(err, [&] { engine().disable_collector(component); });
}

void corvo_api_cp_collector_set_interval(const std::string& component, uint64_t interval, std::string& err) {
    guarded(err, [&] { engine().set_collector_interval(component, interval); });
}

void corvo_api_cp_get_collectors(Json::Value& out, std::string& err) {
    guarded(err, [&] { out = engine().collectors(); });
}

void corvo_api_cp_collector_get_sample(const std::string& component, Json::Value& out, std::string& err) {
    guarded(err, [&] { out = engine().sample(component); });
}

void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig& config, std::string& err) {
    guarded(err, [&] { engine().set_exporter(config); });
}

void corvo_api_cp_health_get(Json::Value& out, bool verbose, std::string& err) {
    guarded(err, [&] { out = engine().health(verbose); });
}

void corvo_api_cp_health_conf_get(Json::Value& out, std::string& err) {
    guarded(err, [&] { out = engine().health_configuration(); });
}

void corvo_api_cp_health_conf_set(const Json::Value& conf, std::string& err) {
    guarded(err, [&] { engine().configure_health(conf); });
}
