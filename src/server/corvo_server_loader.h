#pragma once
// The only loader of, and facade over, the engine library. Nothing else calls a corvo_api_cp_* function. The
// state machine decides which operation may run when. Every failure is a corvo::Exception; one caused by the
// library carries the library's text unchanged.

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
    const char* failure;    ///< precedes the linker's reason
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

    /** What is known about one injected packet. Members only the engine knows are set only if `extended`. */
    struct PktInfo {
        std::string src;
        std::string dst;
        std::string transport;
        std::string protocol;
        uint32_t cls = 0;  ///< 0 means not classified
        api::pkt_error_e error = api::PKT_OK;
        uint16_t aging_sec = 0;
        uint16_t visibility = 0;
        uint16_t len = 0;
        std::vector<std::pair<uint16_t, uint16_t>> cat;
        std::vector<std::string> attr;
        std::vector<std::string> tph;
    };
    /** Receives the engine's results, one packet at a time. */
    using PktSink = std::function<void(PktInfo&&)>;

    /** `mode` is "kernel" or "userspace". The scheduler must outlive the engine. */
    Engine(std::string mode, Scheduler& sched);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    /** Touches neither library nor scheduler; use `cleanup` to bring the engine down. */
    virtual ~Engine();

    virtual std::string& get_mode_int() = 0;
    virtual std::string& get_engine_path_int() = 0;

    state_e state() const { return m_state; }
    /** Throws corvo::Exception if the state is below `required`, STATE_LOADED or STATE_ACTIVE. */
    void validate_state(state_e required);
    /**
     * Callbacks run in order of registration after the state has been set; attach and detach call none. All
     * of them run even if one throws; the first exception is then rethrown.
     */
    void register_state_cb(state_cb cb);
    void unregister_state_cb(state_cb cb);

    /** A failure leaves nothing behind: no task, event, handle or table entry. */
    void load_engine(const std::string& path, const api::InitConfig& config);
    /** Returns at once if nothing is loaded. Even if `deinit` fails, the engine is unloaded. */
    void unload_engine();
    void activate(const api::ActivateConfig& config);
    /** Returns at once if not active. Failing detaches are only logged. */
    void deactivate();
    void attach(const std::string& ifname);
    void detach(const std::string& ifname);
    void detach_all();
    /** Brings the engine down from any state. */
    void cleanup();
    /**
     * Calls the library's tick once; needs a loaded engine. A failure is logged, not thrown. Returns the
     * delay that the library wants in milliseconds; negative for no preference.
     */
    int tick();

    /** Runs a function of the data path by name. */
    std::string coffee(const std::string& dpaddr, const std::string& func, const std::vector<uint32_t>& args);
    void get_version(Json::Value& out);
    /** Empty while unloaded; the library isn't asked then. */
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
     * Classifies a capture file and passes the engine's results to `sink`, in the file's order. Nothing is
     * kept of packets already passed on, so memory use doesn't grow with the file. If it fails halfway,
     * everything passed on so far is void. What the frame itself says (addresses, length, transport, flags)
     * is set only if `extended`, since it costs more than the engine's work.
     */
    void push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                   bool extended, const PktSink& sink);
    /**
     * The same into a vector, always with what the frame itself says. If the file can't be read, `results`
     * is unchanged.
     */
    void push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                   bool extended, std::vector<PktInfo>& results);
    /** Classifies one frame. Leaves address, length and transport in `info` as they are. */
    void push_raw_extended(const std::string& dpaddr, const std::string& data, uint32_t ns_id, bool reset,
                           bool extended, PktInfo& info);

 protected:
    /**
     * Opens the library and stores its handle in `m_handle`; `mt` requests memory tracing. If it throws, it
     * must have undone everything: `unload_engine_int` is only called after a success.
     */
    virtual void load_engine_int(const std::string& path, bool mt) = 0;
    /** Closes the library. Even if it throws, the library is closed and `m_handle` is null. */
    virtual void unload_engine_int() = 0;

 public:  // here to keep its place among the virtual functions
    virtual void get_mt_info_int(mt_info& out) = 0;

 protected:
    /** Opens the library in `dir` into `m_handle`, unless one is open. */
    void open_library(const std::string& dir, const LibraryTexts& texts);
    void close_library(const LibraryTexts& texts);

    void* m_handle = nullptr;  ///< from dlopen
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

/** The text that `status` shows for a state. */
const char* engine_state_to_str(Engine::state_e state);

}  // namespace corvo::server
