#pragma once
// The boundary between brumecpd and an engine library: the records that cross it and the 22 functions that a
// library must export. This header is all that an engine needs to be loaded and driven.
//
// Rules that hold for every function:
//  - All calls come from one thread, the daemon's scheduler, and never overlap. A call holds everything else
//    up for as long as it takes: no request, tick or heartbeat is served meanwhile. Nothing may block.
//  - The last std::string& argument, `err`, arrives empty. A function that failed leaves a non-empty text in
//    it; that text reaches the client or the log unchanged. Failed means: nothing has changed.
//    (`corvo_api_cp_push_pkts` has `err` third.)
//  - References are valid until the function returns; a library keeps copies, never references.
//  - No exception may leave a function.
//  - std::string, std::vector and Json::Value cross by reference, so library and daemon must be built with
//    the same C++ run-time library and the same jsoncpp.
//
// Order of calls: init, then ticks until deinit; activate and deactivate between them; attach and detach
// between activate and deactivate. `deinit` leaves the library as it was before `init`: it may be closed, or
// initialised once more.

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace corvo {

/** The daemon's table of RPC methods, which a library may add to: see engine_rpc.h. */
class RpcCommandsTable;

namespace api {

enum shm_type_e : uint32_t {
    SHM_AUTO = 1,    ///< the engine finds its shared memory by itself
    SHM_DEVMEM = 2,  ///< `shm_dev`, `shm_addr` and `shm_size` say where it is
};

/** Input of `corvo_api_cp_init`. */
struct InitConfig {
    shm_type_e shm_type = SHM_AUTO;
    std::string shm_dev;    ///< device to map; empty for SHM_AUTO
    uint32_t shm_addr = 0;  ///< physical address; meaningful only for SHM_DEVMEM
    uint32_t shm_size = 0;  ///< bytes; meaningful only for SHM_DEVMEM
    std::string cp_addr;    ///< control-plane address of this daemon
    /**
     * Not owned; outlives the library's use. A component that the library loads into it must be taken out
     * again (and destroyed by the library) in `corvo_api_cp_deinit`: its code goes away with the library.
     */
    RpcCommandsTable* cmds = nullptr;
};

/** Input of `corvo_api_cp_activate`. */
struct ActivateConfig {
    uint32_t max_flows = 0;     ///< maximum number of flows
    uint16_t dp_workers = 1;    ///< data-path workers, at most 128
    bool writable_shm = false;  ///< whether the shared memory is writable
};

/** Why a packet wasn't handled as usual. */
enum pkt_error_e : uint32_t {
    PKT_OK = 0,
    PKT_INACTIVE = 1,
    PKT_MAX_FLOWS_REACHED = 2,
    PKT_NO_MEM = 3,
    PKT_NON_IP = 4,
    PKT_NON_FFRAG = 5,   ///< a fragment that isn't the first of its packet
    PKT_TRIMMED_L3 = 6,  ///< headers cut short
    PKT_IPV6_FRAG = 7,
};

/** One packet of `corvo_api_cp_push_pkts`. The engine trusts no field of the frame and reads `len` bytes. */
struct pkt_ {
    unsigned char* data = nullptr;  ///< in: the frame from its Ethernet header; owned by the daemon
    uint16_t len = 0;               ///< in: length of the frame in bytes
    uint16_t l3_off = 0;            ///< in: offset of the IP header
    uint16_t l4_off = 0;            ///< in: offset of the transport header
    uint16_t aging_sec = 0;         ///< out: idle time-out of the packet's flow, seconds
    uint32_t ns_id = 0;             ///< in: name space of the flow, chosen by the client
    uint32_t cls = 0;               ///< out: classification id; 0 means not classified
    uint16_t visibility = 0;        ///< out: the engine's own value
    std::string protocol;           ///< out: name of the recognised protocol
    std::vector<std::pair<uint16_t, uint16_t>> cat;  ///< out: category id and value
    std::vector<std::string> tph;                    ///< out: protocol layers
    std::vector<std::string> attr;                   ///< out: attributes
    pkt_error_e error = PKT_OK;                      ///< out: why the packet wasn't handled as usual
};

enum exporter_type_e : uint32_t {
    EXPORTER_HTTP = 1,
    EXPORTER_HTTPS = 2,
    EXPORTER_KILN_CLOUD = 3,
    EXPORTER_FILE = 4,
    EXPORTER_NONE = 5,
};

/** Input of `corvo_api_cp_collect_set_exporter`. */
struct ExporterConfig {
    std::string server;  ///< name or address, for http and https
    std::string path;    ///< URL path for http and https, file path for file
    uint16_t port = 0;   ///< for http and https
    exporter_type_e type = EXPORTER_NONE;
};

#if UINTPTR_MAX == UINT32_MAX
// The layouts that libraries of the 32-bit target were built against.
static_assert(sizeof(std::string) == 24 && sizeof(std::vector<int>) == 12);
static_assert(sizeof(InitConfig) == 64 && offsetof(InitConfig, shm_dev) == 4 &&
              offsetof(InitConfig, shm_addr) == 28 && offsetof(InitConfig, shm_size) == 32 &&
              offsetof(InitConfig, cp_addr) == 36 && offsetof(InitConfig, cmds) == 60);
static_assert(sizeof(pkt_) == 88 && offsetof(pkt_, len) == 4 && offsetof(pkt_, l3_off) == 6 &&
              offsetof(pkt_, l4_off) == 8 && offsetof(pkt_, aging_sec) == 10 && offsetof(pkt_, ns_id) == 12 &&
              offsetof(pkt_, cls) == 16 && offsetof(pkt_, visibility) == 20 &&
              offsetof(pkt_, protocol) == 24 && offsetof(pkt_, cat) == 48 && offsetof(pkt_, tph) == 60 &&
              offsetof(pkt_, attr) == 72 && offsetof(pkt_, error) == 84);
static_assert(sizeof(ExporterConfig) == 56 && offsetof(ExporterConfig, path) == 24 &&
              offsetof(ExporterConfig, port) == 48 && offsetof(ExporterConfig, type) == 52);
#endif
static_assert(sizeof(ActivateConfig) == 8 && offsetof(ActivateConfig, dp_workers) == 4 &&
              offsetof(ActivateConfig, writable_shm) == 6);

}  // namespace api
}  // namespace corvo

#define BRUMECPD_ENGINE_API extern "C" [[gnu::visibility("default")]]

// --- life
// ---------------------------------------------------------------------------------------------------

/** Called once after the library was opened. Nothing is called before it. */
BRUMECPD_ENGINE_API void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string& err);
/** Releases all that `init` took. The daemon closes the library afterwards, even if this failed. */
BRUMECPD_ENGINE_API void corvo_api_cp_deinit(std::string& err);
/** Starts the data path. */
BRUMECPD_ENGINE_API void corvo_api_cp_activate(const corvo::api::ActivateConfig& config, std::string& err);
/** Stops the data path. All interfaces have been detached before, unless a detach failed. */
BRUMECPD_ENGINE_API void corvo_api_cp_deactivate(std::string& err);
/**
 * Periodic work. Gives the wanted delay to the next call in milliseconds, counted from this one's end; 0: on
 * the scheduler's next turn; negative: no preference, one second. Counts also when `err` is set.
 */
BRUMECPD_ENGINE_API int corvo_api_cp_tick(std::string& err);
/**
 * Gives a descriptor, above 0, that becomes readable when the engine wants a tick at once. It belongs to the
 * library and stays open until `deinit`. The tick must take the readiness away, or it is called again at
 * once.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_get_evfd(int& fd, std::string& err);

// --- packets and data paths
// -----------------------------------------------------------------------------------

/**
 * Classifies the packets in order and fills the output fields in place; the vector's size doesn't change.
 * Without `extended` only `protocol` and `cls` are looked at. `dpaddr` names the data path; empty: any.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_push_pkts(const std::string& dpaddr,
                                                std::vector<corvo::api::pkt_>& pkts, std::string& err,
                                                bool extended);
/**
 * Runs a named internal function with at most 8 arguments and gives its output in `result`. The daemon itself
 * calls "dp.veld.sui_lut_remove_all_links" and "dp.ft.sui_ft_kill_all_flows", to forget all flows.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_coffee(const std::string& dpaddr, const std::string& func,
                                             const std::vector<uint32_t>& args, std::string& result,
                                             std::string& err);
/** Any JSON value that tells the engine's version; goes into `status` as it is. */
BRUMECPD_ENGINE_API void corvo_api_cp_get_version(Json::Value& out, std::string& err);
/** Appends the addresses of the data paths: the values that `dpaddr` may have. */
BRUMECPD_ENGINE_API void corvo_api_cp_get_dps(std::vector<std::string>& out, std::string& err);

// --- interfaces
// ---------------------------------------------------------------------------------------------

/** Takes the interface into the data path. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_attach(const std::string& ifname, std::string& err);
/** Releases the interface. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_detach(const std::string& ifname, std::string& err);
/** Appends the attached interfaces. The daemon keeps no list of its own. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_get(std::vector<std::string>& out, std::string& err);

// --- collectors, exporter and health: may be called before `activate`
// -----------------------------------------

BRUMECPD_ENGINE_API void corvo_api_cp_collector_enable(const std::string& component, std::string& err);
BRUMECPD_ENGINE_API void corvo_api_cp_collector_disable(const std::string& component, std::string& err);
/** `interval` in milliseconds. */
BRUMECPD_ENGINE_API void corvo_api_cp_collector_set_interval(const std::string& component, uint64_t interval,
                                                             std::string& err);
/** Fills `out` with the members "collectables", an array or object, and "exporter". */
BRUMECPD_ENGINE_API void corvo_api_cp_get_collectors(Json::Value& out, std::string& err);
/** Fills `out`, an empty object, with a sample. */
BRUMECPD_ENGINE_API void corvo_api_cp_collector_get_sample(const std::string& component, Json::Value& out,
                                                           std::string& err);
BRUMECPD_ENGINE_API void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig& config,
                                                           std::string& err);
BRUMECPD_ENGINE_API void corvo_api_cp_health_get(Json::Value& out, bool verbose, std::string& err);
BRUMECPD_ENGINE_API void corvo_api_cp_health_conf_get(Json::Value& out, std::string& err);
/** `conf` is an object; nothing of it is taken when anything in it is wrong. */
BRUMECPD_ENGINE_API void corvo_api_cp_health_conf_set(const Json::Value& conf, std::string& err);
