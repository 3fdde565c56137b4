#include "server/corvo_server_loader.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <exception>
#include <iterator>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "server/corvo_server_tick.h"
#include "server/watchdog/corvo_info.h"
#include "utils/exception.h"
#include "utils/unique_fd.h"

namespace corvo::server {

namespace {

const std::string COMP = "server";

/**
 * Runs a call into the library, `fn(err)`. Returns the failure's text, empty on success. Also catches
 * exceptions of libraries that break the rule not to throw: such an exception must not live on, because its
 * type belongs to code that may be closed soon.
 */
template <typename Fn>
std::string failure_of(Fn&& fn) {
    std::string err;
    try {
        fn(err);
    } catch (const std::exception& e) {
        err = e.what();
        if (err.empty()) err = "engine threw an exception without a text";
    } catch (...) {
        err = "engine threw an exception of unknown type";
    }
    return err;
}

/** The same for callers that pass a failure on as an exception. */
template <typename Fn>
void call(Fn&& fn) {
    const std::string err = failure_of(fn);
    if (!err.empty()) throw Exception(err);
}

}  // namespace

Engine::Engine(std::string mode, Scheduler& sched) : m_mode(std::move(mode)), m_sched(sched) {}

Engine::~Engine() = default;

// --- state -------------------------------------------------------------------------------------------------

void Engine::validate_state(state_e required) {
    if (m_state >= required) return;
    throw Exception(required == STATE_LOADED ? "corvo is not loaded" : "corvo is not active");
}

void Engine::register_state_cb(state_cb cb) {
    m_state_cbs.push_back(cb);
}

void Engine::unregister_state_cb(state_cb cb) {
    const auto it = std::find(m_state_cbs.begin(), m_state_cbs.end(), cb);
    if (it == m_state_cbs.end()) {
        CORVO_LOG(ERROR, COMP, "Unregistering state change callback failed - Callback not found");
        return;
    }
    m_state_cbs.erase(it);
}

void Engine::set_state(state_e state) {
    m_state = state;
    std::exception_ptr first_failure;
    const std::vector<state_cb> cbs = m_state_cbs;  // copied because a callback may remove itself
    for (const state_cb cb : cbs) {
        try {
            cb(state);
        } catch (...) {
            if (!first_failure) first_failure = std::current_exception();
        }
    }
    if (first_failure) std::rethrow_exception(first_failure);
}

const char* engine_state_to_str(Engine::state_e state) {
    return InfoEngine::eng_state_to_str(static_cast<int>(state));
}

// --- load and unload ---------------------------------------------------------------------------------------

void Engine::load_engine(const std::string& path, const api::InitConfig& config) {
    if (m_state != STATE_UNLOADED) throw Exception("corvo is already loaded");
    CORVO_LOG(INFO, COMP, "Loading corvo engine");
    load_engine_int(path, true);
    bool initialised = false;
    try {
        load_syms();
        call([&](std::string& err) { m_api.init(config, err); });
        initialised = true;
        m_path = path;
        add_task_and_event();
        set_state(STATE_LOADED);
    } catch (...) {
        release_after_failed_load(initialised);
        throw;
    }
}

void Engine::open_library(const std::string& dir, const LibraryTexts& texts) {
    if (m_handle) return;
    CORVO_LOG_TEXT(DEBUG, COMP, texts.loading);
    const std::string path = dir + "/" + texts.file;
    struct stat info {};
    // Opening a pipe would wait for a writer and hold up everything.
    if (stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw Exception(texts.failure + path + ": cannot open shared object file: Not a regular file");
    // A daemon runs with these closed. A library must not get one: it couldn't tell 0 from no descriptor, and
    // 1 and 2 receive whatever is printed.
    occupy_standard_fds();
    m_handle = dlopen(path.c_str(), RTLD_NOW);
    if (m_handle) return;
    const char* reason = dlerror();
    throw Exception(std::string(texts.failure) + (reason ? reason : "no reason given"));
}

void Engine::close_library(const LibraryTexts& texts) {
    if (!m_handle) return;
    CORVO_LOG_TEXT(DEBUG, COMP, texts.unloading);
    dlclose(m_handle);
    m_handle = nullptr;
}

void Engine::load_syms() {
    for (const EngineSymbol& symbol : engine_symbols()) {
        void* address = dlsym(m_handle, symbol.name);
        if (!address) {
            const char* reason = dlerror();  // null if the symbol exists with the value 0
            throw Exception(std::string("failed loading symbol '") + symbol.name +
                            "': " + (reason ? reason : "its address is null"));
        }
        symbol.store(m_api, address);
    }
}

void Engine::add_task_and_event() {
    m_task = std::make_shared<EngineTask>(this);
    m_sched.add(m_task, 0);
    int fd = -1;
    call([&](std::string& err) { m_api.get_evfd(fd, err); });
    if (fd <= 0) throw Exception("engine gave no valid event descriptor (" + std::to_string(fd) + ")");
    m_event = std::make_shared<EngineEvent>(fd, this);
    m_sched.add(m_event, EVENT_STATE_READ, 0);
}

void Engine::drop_task_and_event() {
    if (m_task) m_sched.remove(m_task.get());
    m_task.reset();
    if (m_event) m_sched.remove(m_event.get());
    m_event.reset();
}

void Engine::forget_library() {
    m_api = EngineApi();
    m_path.clear();
}

void Engine::release_after_failed_load(bool initialised) noexcept {
    drop_task_and_event();
    if (initialised) {
        const std::string err = failure_of([&](std::string& e) { m_api.deinit(e); });
        if (!err.empty()) CORVO_LOG(WARN, COMP, "deinit after a failed load: %s, ignoring", err.c_str());
    }
    try {
        unload_engine_int();
    } catch (const std::exception& e) {
        CORVO_LOG(WARN, COMP, "unload after a failed load: %s, ignoring", e.what());
    }
    forget_library();
    m_state = STATE_UNLOADED;
}

void Engine::unload_engine() {
    if (m_state == STATE_UNLOADED) return;
    if (m_state >= STATE_ACTIVE) throw Exception("corvo must be deactivated before unloading");
    CORVO_LOG(INFO, COMP, "Unloading corvo engine");
    drop_task_and_event();  // both call into the library, so they go first
    const std::string err = failure_of([&](std::string& e) { m_api.deinit(e); });
    std::exception_ptr close_failure;
    try {
        unload_engine_int();
    } catch (...) {
        close_failure = std::current_exception();
    }
    forget_library();
    set_state(STATE_UNLOADED);
    if (close_failure) {
        if (!err.empty()) CORVO_LOG_TEXT(ERROR, COMP, err);
        std::rethrow_exception(close_failure);
    }
    if (!err.empty()) throw Exception(err);
}

void Engine::cleanup() {
    if (m_state == STATE_ATTACHED) detach_all();
    if (m_state == STATE_ACTIVE) deactivate();
    unload_engine();
}

// --- data path and interfaces ------------------------------------------------------------------------------

void Engine::activate(const api::ActivateConfig& config) {
    validate_state(STATE_LOADED);
    if (m_state >= STATE_ACTIVE) throw Exception("corvo is already active");
    CORVO_LOG(INFO, COMP, "Activating corvo");
    call([&](std::string& err) { m_api.activate(config, err); });
    CORVO_LOG(INFO, COMP, "corvo activated successfully");
    set_state(STATE_ACTIVE);
}

void Engine::deactivate() {
    if (m_state < STATE_ACTIVE) return;
    CORVO_LOG(INFO, COMP, "Deactivating corvo");
    try {
        detach_all();
    } catch (const Exception& e) {
        CORVO_LOG_TEXT(ERROR, COMP, e.what());
    }
    call([&](std::string& err) { m_api.deactivate(err); });
    set_state(STATE_LOADED);
}

void Engine::attach(const std::string& ifname) {
    validate_state(STATE_ACTIVE);
    CORVO_LOG(INFO, COMP, "Attaching to interface %s", ifname.c_str());
    call([&](std::string& err) { m_api.intf_attach(ifname, err); });
    m_state = STATE_ATTACHED;
}

void Engine::detach(const std::string& ifname) {
    validate_state(STATE_ACTIVE);
    detach_one(ifname);
}

/** Returns the interfaces that the engine still lists. */
std::vector<std::string> Engine::detach_one(const std::string& ifname) {
    CORVO_LOG(INFO, COMP, "Detaching from interface %s", ifname.c_str());
    call([&](std::string& err) { m_api.intf_detach(ifname, err); });
    std::vector<std::string> left;
    get_interfaces(left);
    m_state = left.empty() ? STATE_ACTIVE : STATE_ATTACHED;
    return left;
}

void Engine::detach_all() {
    validate_state(STATE_ACTIVE);
    std::vector<std::string> names;
    get_interfaces(names);
    std::vector<std::string> left;
    for (const std::string& name : names)
        left = detach_one(name);
    for (const std::string& name : left) {
        CORVO_LOG(WARN, COMP, "engine still lists interface '%s' after its detach, ignoring", name.c_str());
    }
    m_state = STATE_ACTIVE;
}

// --- the library's functions, one by one -------------------------------------------------------------------

int Engine::tick() {
    int delay_ms = -1;
    const std::string err = failure_of([&](std::string& e) { delay_ms = m_api.tick(e); });
    if (!err.empty()) CORVO_LOG(ERROR, COMP, "Engine error '%s'", err.c_str());
    return delay_ms;
}

std::string Engine::coffee(const std::string& dpaddr, const std::string& func,
                           const std::vector<uint32_t>& args) {
    validate_state(STATE_LOADED);
    if (args.size() > MAX_COFFEE_ARGS) throw Exception("COFFEE maximum argument count is 8");
    std::string result;
    call([&](std::string& err) { m_api.coffee(dpaddr, func, args, result, err); });
    return result;
}

void Engine::get_version(Json::Value& out) {
    if (m_state < STATE_ACTIVE) throw Exception("corvo is not loaded");
    call([&](std::string& err) { m_api.get_version(out, err); });
}

void Engine::get_interfaces(std::vector<std::string>& out) {
    out.clear();
    if (m_state == STATE_UNLOADED) return;
    call([&](std::string& err) { m_api.intf_get(out, err); });
}

void Engine::get_dps(std::vector<std::string>& out) {
    out.clear();
    if (m_state == STATE_UNLOADED) return;
    call([&](std::string& err) { m_api.get_dps(out, err); });
}

void Engine::collector_enable(const std::string& component) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.collector_enable(component, err); });
}

void Engine::collector_disable(const std::string& component) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.collector_disable(component, err); });
}

void Engine::collector_set_interval(const std::string& component, uint64_t interval_ms) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.collector_set_interval(component, interval_ms, err); });
}

void Engine::get_collectors(Json::Value& out) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.get_collectors(out, err); });
}

void Engine::collector_get_sample(const std::string& component, Json::Value& out) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.collector_get_sample(component, out, err); });
}

void Engine::collect_set_exporter(const api::ExporterConfig& config) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.collect_set_exporter(config, err); });
}

void Engine::health_get(Json::Value& out, bool verbose) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.health_get(out, verbose, err); });
}

void Engine::health_conf_get(Json::Value& out) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.health_conf_get(out, err); });
}

void Engine::health_conf_set(const Json::Value& conf) {
    validate_state(STATE_LOADED);
    call([&](std::string& err) { m_api.health_conf_set(conf, err); });
}

void Engine::push_pkts_internal(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended,
                                std::vector<PktInfo>& infos) {
    call([&](std::string& err) { m_api.push_pkts(dpaddr, pkts, err, extended); });
    if (pkts.size() != infos.size()) throw Exception("engine changed the number of packets");
    for (size_t i = 0; i < pkts.size(); ++i) {
        api::pkt_& pkt = pkts[i];
        PktInfo& info = infos[i];
        info.protocol = std::move(pkt.protocol);
        info.cls = pkt.cls;
        if (!extended) continue;
        info.error = pkt.error;
        info.aging_sec = pkt.aging_sec;
        info.visibility = pkt.visibility;
        info.cat = std::move(pkt.cat);
        std::move(pkt.attr.begin(), pkt.attr.end(), std::back_inserter(info.attr));
        std::move(pkt.tph.begin(), pkt.tph.end(), std::back_inserter(info.tph));
    }
}

}  // namespace corvo::server
