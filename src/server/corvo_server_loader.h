#pragma once
// The one loader of, and facade over, the engine library. Nothing else calls a corvo_api_cp_* function. The
// state machine says which operation may run when; every failure is a corvo::Exception, and one that came
// from the library carries the library's text unchanged.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "server/corvo_server_loader_api.h"

namespace corvo {
class CCapReaderBase;
class Scheduler;
}  // namespace corvo

namespace corvo::server {

class EngineEvent;
class EngineTask;
class PacketBuffer;

/** How a kind of engine names its library, in the file system and in the log. */
struct LibraryTexts {
    const char* file;       ///< in the engine's directory
    const char* loading;    ///< debug line
    const char* unloading;  ///< debug line
    const char* failure;    ///< comes before the reason that the linker gives
};

class Engine {
 public:
    enum state_e : uint32_t {
        STATE_UNLOADED = 0,
        STATE_LOADED = 1,
        STATE_ACTIVE = 2,
        STATE_ATTACHED = 3,
    };
    using state_cb = void (*)(state_e);
    using mt_info = std::unordered_map<std::string, std::unordered_map<std::string, uint64_t>>;

    static constexpr size_t MAX_COFFEE_ARGS = 8;

    /** What is known about one injected packet; what only the engine can tell, only if `extended`. */
    struct PktInfo {
        std::string src;
        std::string dst;
        std::string transport;
        std::string protocol;
        uint32_t cls = 0;  ///< 0: not classified
        api::pkt_error_e error = api::PKT_OK;
        uint16_t aging_sec = 0;
        uint16_t visibility = 0;
        uint16_t len = 0;
        std::vector<std::pair<uint16_t, uint16_t>> cat;
        std::vector<std::string> attr;
        std::vector<std::string> tph;
    };
    /** Takes what the engine recognised, one packet after the other. */
    using PktSink = std::function<void(PktInfo&&)>;

    /** `mode` is "kernel" or "userspace". The scheduler must outlive the engine. */
    Engine(std::string mode, Scheduler& sched);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    /** Touches neither library nor scheduler: `cleanup` is what brings the engine down. */
    virtual ~Engine();

    virtual std::string& get_mode_int() = 0;
    virtual std::string& get_engine_path_int() = 0;

    state_e state() const { return m_state; }
    /** @throws corvo::Exception if the state is below `required`, STATE_LOADED or STATE_ACTIVE */
    void validate_state(state_e required);
    /**
     * Callbacks run in order of registration when the state has been written; attach and detach call none.
     * All of them run even if one throws; the first exception then leaves the operation.
     */
    void register_state_cb(state_cb cb);
    void unregister_state_cb(state_cb cb);

    /** A failure leaves nothing behind: no task, event, handle or table entry. */
    void load_engine(const std::string& path, const api::InitConfig& config);
    /** Returns at once when nothing is loaded. A failing `deinit` still leaves the engine unloaded. */
    void unload_engine();
    void activate(const api::ActivateConfig& config);
    /** Returns at once when not active. Failing detaches are log lines. */
    void deactivate();
    void attach(const std::string& ifname);
    void detach(const std::string& ifname);
    void detach_all();
    /** Brings the engine down from whatever state it is in. */
    void cleanup();
    /**
     * One call of the library's tick; needs a loaded engine. Its failure is a log line, nothing is thrown.
     * Gives the delay in milliseconds that the library wants, negative for no preference.
     */
    int tick();

    /** Runs a function of the data path by its name. */
    std::string coffee(const std::string& dpaddr, const std::string& func, const std::vector<uint32_t>& args);
    void get_version(Json::Value& out);
    /** Empty while unloaded, without asking the library. */
    void get_interfaces(std::vector<std::string>& out);
    void get_dps(std::vector<std::string>& out);

    void collector_enable(const std::string& component);
    void collector_disable(const std::string& component);
    void collector_set_interval(const std::string& component, uint64_t interval_ms);
    void get_collectors(Json::Value& out);
    void collector_get_sample(const std::string& component, Json::Value& out);
    void collect_set_exporter(const api::ExporterConfig& config);
    void health_get(Json::Value& out, bool verbose);
    void health_conf_get(Json::Value& out);
    void health_conf_set(const Json::Value& conf);

    /**
     * Classifies a capture file and hands over what the engine recognised, in the file's order. Nothing is
     * kept of a packet that was handed over, so memory doesn't grow with the file. A failure in the middle
     * of the file makes everything handed over before it void. What the frame itself tells (addresses,
     * length, transport, flags) is there only if `extended`, since it costs more than the engine does.
     */
    void push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                   bool extended, const PktSink& sink);
    /** The same into a vector, with what the frame tells in any case. `results` is kept if the file isn't
     * read. */
    void push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                   bool extended, std::vector<PktInfo>& results);
    /** Classifies one frame. `info` keeps its address, length and transport. */
    void push_raw_extended(const std::string& dpaddr, const std::string& data, uint32_t ns_id, bool reset,
                           bool extended, PktInfo& info);

 protected:
    /**
     * Opens the library and stores its handle in `m_handle`. `mt`: with memory tracing. If it throws, it has
     * undone what it did: `unload_engine_int` is called only after a success.
     */
    virtual void load_engine_int(const std::string& path, bool mt) = 0;
    /** Closes the library. If it throws, the library is closed and `m_handle` null all the same. */
    virtual void unload_engine_int() = 0;

 public:  // here for its place among the virtual operations
    virtual void get_mt_info_int(mt_info& out) = 0;

 protected:
    /** Opens the library in `dir` into `m_handle`, unless one is open. */
    void open_library(const std::string& dir, const LibraryTexts& texts);
    void close_library(const LibraryTexts& texts);

    void* m_handle = nullptr;  ///< of dlopen
    std::string m_path;        ///< directory the library was loaded from; empty while unloaded
    std::string m_mode;

 private:
    void load_syms();
    void add_task_and_event();
    void drop_task_and_event();
    void release_after_failed_load(bool initialised) noexcept;
    void forget_library();
    void set_state(state_e state);
    std::vector<std::string> detach_one(const std::string& ifname);
    void flow_reset(const std::string& dpaddr);
    void push_pkts_internal(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended,
                            std::vector<PktInfo>& infos);
    std::unique_ptr<CCapReaderBase> begin_push(const std::string& dpaddr, const std::string& filename,
                                               bool reset);
    void push_frames(CCapReaderBase& reader, const std::string& dpaddr, uint32_t ns_id, bool extended,
                     bool described, const PktSink& sink);
    void send_batch(const std::string& dpaddr, PacketBuffer& batch, bool extended, const PktSink& sink);

    Scheduler& m_sched;
    EngineApi m_api;
    state_e m_state = STATE_UNLOADED;
    std::shared_ptr<EngineTask> m_task;
    std::shared_ptr<EngineEvent> m_event;
    std::vector<state_cb> m_state_cbs;
};

/** The text of `status` for a state. */
const char* engine_state_to_str(Engine::state_e state);

}  // namespace corvo::server
