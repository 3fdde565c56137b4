#pragma once
// The boundary between brumecpd and an engine library: the records that cross it and the 22 functions that a
// library must export. An engine needs nothing but this header to be loaded and driven.
//
// Rules for every function:
//  - All calls come from one thread, the daemon's scheduler, and never overlap. The daemon serves no
//    requests, ticks or heartbeats during a call, so a call must not block.
//  - The last std::string& argument, `err`, is empty on entry. A function that fails leaves a non-empty text
//    in it, which reaches the client or the log unchanged, and must have changed nothing.
//    (`corvo_api_cp_push_pkts` has `err` in third place.)
//  - References are valid until the function returns; a library must keep copies, not references.
//  - No exception may leave a function.
//  - std::string, std::vector and Json::Value cross by reference, so library and daemon must be built with
//    the same C++ run-time library and the same jsoncpp.
//
// Order of calls: init, then ticks until deinit; activate and deactivate in between; attach and detach
// between activate and deactivate. `deinit` leaves the library as it was before `init`: it may then be closed
// or initialised again.

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace corvo {

/** The daemon's table of RPC methods, to which a library may add: see engine_rpc.h. */
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
     * Not owned; outlives the library's use of it. A library that loads a component into it must remove and
     * destroy that component in `corvo_api_cp_deinit`, as its code is unloaded with the library.
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
    PKT_NON_FFRAG = 5,   ///< a fragment other than the first of its packet
    PKT_TRIMMED_L3 = 6,  ///< truncated headers
    PKT_IPV6_FRAG = 7,
};

/**
 * One packet of `corvo_api_cp_push_pkts`. The engine must not trust the frame's contents and reads at most
 * `len` bytes.
 */
struct pkt_ {
    unsigned char* data = nullptr;  ///< in: the frame from its Ethernet header; owned by the daemon
    uint16_t len = 0;               ///< in: length of the frame in bytes
    uint16_t l3_off = 0;            ///< in: offset of the IP header
    uint16_t l4_off = 0;            ///< in: offset of the transport header
    uint16_t aging_sec = 0;         ///< out: idle timeout of the packet's flow, seconds
    uint32_t ns_id = 0;             ///< in: name space of the flow, chosen by the client
    uint32_t cls = 0;               ///< out: classification id; 0 means not classified
    uint16_t visibility = 0;        ///< out: meaning defined by the engine
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
// The layouts that libraries for the 32-bit target were built against.
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

/** Called once after the library has been opened, before any other function. */
BRUMECPD_ENGINE_API void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string& err);
/** Releases everything that `init` acquired. The daemon then closes the library, even if this failed. */
BRUMECPD_ENGINE_API void corvo_api_cp_deinit(std::string& err);
/** Starts the data path. */
BRUMECPD_ENGINE_API void corvo_api_cp_activate(const corvo::api::ActivateConfig& config, std::string& err);
/** Stops the data path. All interfaces have been detached before, unless a detach failed. */
BRUMECPD_ENGINE_API void corvo_api_cp_deactivate(std::string& err);
/**
 * Periodic work. Returns the delay until the next call in milliseconds, counted from the end of this one; 0
 * means on the scheduler's next turn, a negative value means no preference (one second). The result counts
 * even if `err` is set.
 */
BRUMECPD_ENGINE_API int corvo_api_cp_tick(std::string& err);
/**
 * Sets `fd` to a descriptor above 0 that becomes readable when the engine wants a tick at once. The library
 * owns it and keeps it open until `deinit`. The tick must clear the readiness, or it is called again at once.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_get_evfd(int& fd, std::string& err);

// --- packets and data paths

/**
 * Classifies the packets in order and fills their output fields in place; the vector's size doesn't change.
 * Without `extended`, only `protocol` and `cls` are read. `dpaddr` names the data path; empty means any.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_push_pkts(const std::string& dpaddr,
                                                std::vector<corvo::api::pkt_>& pkts, std::string& err,
                                                bool extended);
/**
 * Runs a named internal function with at most 8 arguments and puts its output in `result`. The daemon itself
 * calls "dp.veld.sui_lut_remove_all_links" and "dp.ft.sui_ft_kill_all_flows", to forget all flows.
 */
BRUMECPD_ENGINE_API void corvo_api_cp_coffee(const std::string& dpaddr, const std::string& func,
                                             const std::vector<uint32_t>& args, std::string& result,
                                             std::string& err);
/** Sets `out` to any JSON value that tells the engine's version; it goes into `status` unchanged. */
BRUMECPD_ENGINE_API void corvo_api_cp_get_version(Json::Value& out, std::string& err);
/** Appends the addresses of the data paths: the values that `dpaddr` may have. */
BRUMECPD_ENGINE_API void corvo_api_cp_get_dps(std::vector<std::string>& out, std::string& err);

// --- interfaces

/** Adds the interface to the data path. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_attach(const std::string& ifname, std::string& err);
/** Releases the interface. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_detach(const std::string& ifname, std::string& err);
/** Appends the attached interfaces. The daemon keeps no list of its own. */
BRUMECPD_ENGINE_API void corvo_api_cp_intf_get(std::vector<std::string>& out, std::string& err);

// --- collectors, exporter and health: may be called before `activate`

BRUMECPD_ENGINE_API void corvo_api_cp_collector_enable(const std::string& component, std::string& err);
BRUMECPD_ENGINE_API void corvo_api_cp_collector_disable(const std::string& component, std::string& err);
/** `interval` is in milliseconds. */
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
/** `conf` is an object. If anything in it is wrong, none of it is applied. */
BRUMECPD_ENGINE_API void corvo_api_cp_health_conf_set(const Json::Value& conf, std::string& err);
