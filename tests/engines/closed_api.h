#pragma once
// What a library that was built elsewhere knows of the daemon's classes: declarations written anew, by hand,
// of those whose layout or order of virtual functions it relies on. Nothing of the sources is included, so
// that what changes there is noticed here. Names and parameters of all that is promised stand in
// brumecpd.symbols.

#include <json/value.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <list>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

using Text = const std::string&;

struct cvmalloc_stats_ {
    uint32_t total, used, free;
};
struct corvo_mt_client_ {
    char bytes[112];
};
int cvmalloc_stats(cvmalloc_stats_*), corvo_mt_get(int, corvo_mt_client_*), cv_close(int);
extern const char basis_64[65];
extern const unsigned char pr2six[256];

namespace corvo {

struct Version {
    static const char *const g_version, *const g_gitsha;
    static const bool g_is_dev_image, g_bare_metal, g_have_dw, g_in_slave_mode, g_is_optimized;
    static const int g_sanitizer;
};

struct Exception : std::runtime_error {
    Exception(Text, int);
};

// --- events and tasks
enum EventState : uint32_t { EVENT_STATE_NONE, EVENT_STATE_READ = 2 };
enum EventExpireReason : uint32_t { EVENT_EXPIRE_READY, EVENT_EXPIRE_TIMEOUT };
struct EventRC {
    uint32_t action, timeout_ms;
    EventState state;
};
struct Event {
    Event();
    virtual ~Event();
    virtual std::string get_name() const = 0;
    virtual EventRC do_work(const EventExpireReason&) = 0;
    EventRC done() const, resched(unsigned int) const, resched(EventState, unsigned int) const;
    int m_fd;
    std::list<std::function<void(Event*)>> m_callbacks;
};
struct ActiveEvent {
    std::shared_ptr<Event> event;
    EventState state;
    int m_timer_fd;
    uint32_t timeout_ms;
};
struct EventPoller {
    EventPoller();
    ~EventPoller();
    void add(const std::shared_ptr<Event>&, EventState, unsigned int);
    bool handle_pending_events(int);
    int m_epoll;
    std::unordered_map<int, ActiveEvent> m_active;
    std::multiset<std::pair<int, EventExpireReason>> m_expired;
};
struct Task {
    Task(int32_t = 300);
    virtual ~Task();
    virtual int execute() = 0;
    virtual std::string get_name() const = 0;
    virtual int64_t hog_timeout_ms() const;
    uint64_t m_when;
    int32_t m_hog_timeout_ms;
};
struct Scheduler {
    Scheduler();
    ~Scheduler();
    void add(const std::shared_ptr<Task>&, unsigned int), stop(int);
    static uint64_t now();
    int run();
    std::multiset<std::shared_ptr<Task>> m_tasks;
    EventPoller m_poller;
    int m_stop_cause;
    std::function<void(int)> m_stop_cb;
    void* m_stats;
};

// --- channels
enum state_e { CHANNEL_OK, CHANNEL_SEND_AGAIN, CHANNEL_RECV_AGAIN, CHANNEL_TIMEOUT };
using handler_cb = std::function<void(state_e, Text in, std::string& out)>;
struct Channel : Event {
    virtual state_e push(Text) const = 0, pop(std::string&, int) const = 0;
    virtual void set_handler(handler_cb) = 0;
    virtual handler_cb get_handler() = 0;
};
struct SocketChannel : Channel {
    SocketChannel(Text name, int fd, handler_cb, unsigned int timeout_ms);
    std::string get_name() const override;
    EventRC do_work(const EventExpireReason&) override;
    state_e push(Text) const override;
    state_e pop(std::string&, int) const override;
    void set_handler(handler_cb) override;
    handler_cb get_handler() override;
    virtual long _send(int, Text) const, _recv(int, std::string&) const;
    virtual state_e _poll(int, int) const;
    handler_cb m_handler;
    unsigned int m_timeout_ms;
    std::string m_name;
};
struct SocketChannelPair {
    SocketChannelPair(Text name);
    std::shared_ptr<SocketChannel> first, second;
};

// --- logger
namespace Logger {
enum logger_level_e : unsigned { QUIET, ERROR, WARN, INFO, DEBUG, INHERITED };
enum logger_type_e : unsigned { LOGGER_CONSOLE };
struct CStrRef {
    CStrRef(Text);
    const char* m_text;
    std::string m_owned;
};
struct LoggerInstance {
    LoggerInstance(logger_level_e, Text);
    virtual ~LoggerInstance();
    virtual void log(const char*, int, Text, const char*, logger_level_e, va_list),
        history(std::vector<std::string>&, unsigned int), set_verbosity(logger_level_e),
        set_verbosity(logger_level_e, Text), reset_verbosity(logger_level_e);
    virtual const char* get_verbosity();
    virtual logger_level_e get_comp_verb(Text);
    virtual std::unordered_map<std::string, logger_level_e> get_verbosity_comps();
    virtual std::string get_log_filename();
    virtual void write(const char*, va_list, bool) = 0, flush() = 0;
    logger_level_e m_level;
    FILE* m_file;
    std::string m_filename;
    std::unordered_map<std::string, logger_level_e> m_comps;
};
LoggerInstance* get_logger();
void open_logger(logger_type_e, logger_level_e, Text), close_logger(), set_logger(LoggerInstance*);
void xlog(const char*, int, logger_level_e, Text, CStrRef, ...);
std::string get_log_filename();
}  // namespace Logger

// --- notifications
namespace notif {
enum Severity { SEV_ANY, SEV_INFO, SEV_WARN, SEV_SEVERE };
struct Event {
    Event(Text, Text, Severity, Text);
    virtual ~Event();
    static std::atomic<uint64_t> g_id;
    uint64_t id;
    std::string feature, name;
    Severity severity;
    std::string desc;
    int64_t ts;
};
struct Filter {
    std::string feature, name;
    Severity severity;
};
struct Subscriber {
    Subscriber(const Filter&);
    virtual ~Subscriber();
    virtual int execute_(const Event&) = 0;
    virtual std::string uid() const = 0;
    Filter m_filter;
    uint64_t hits;
};
struct Notif {
    Notif();
    void subscribe(std::unique_ptr<Subscriber>&&), notify(const Event&);
    std::vector<std::unique_ptr<Subscriber>> m_subs;
};
}  // namespace notif

// --- commands
struct RpcCommandException : Exception {
    RpcCommandException(Text, uint32_t);
    uint32_t m_rc;
};
struct RpcParser {
    enum field_type_e : uint32_t { TYPE_BYTE, TYPE_STRING = 8, TYPE_ARRAY = 10 };
    const char* type_to_str(field_type_e);
    void check_field_type(const Json::Value&, Text, field_type_e, Json::Value&);
};
struct RpcCommand : RpcParser {
    RpcCommand(Text);
    virtual ~RpcCommand();
    virtual int _run(Text, const Json::Value&, Json::Value&) = 0;
    int run(Text, const Json::Value&, Json::Value&);
    std::string m_name;
};
struct RpcComponent {
    RpcComponent(Text);
    ~RpcComponent();
    void add(RpcCommand*);
    std::string m_name;
    std::vector<std::unique_ptr<RpcCommand>> m_commands;
};
struct RpcCommandsTable {
    RpcCommandsTable();
    ~RpcCommandsTable();
    void load_component(RpcComponent*), unload_component(Text);
    RpcComponent* lookup_component(Text);
    RpcCommand* lookup(Text) const;
    std::vector<RpcComponent*> m_components;
    std::unordered_map<std::string, RpcCommand*> m_commands;
    bool m_initialised;
};

namespace server {
struct Server {
    static Server* g_ptr;
    int get_uptime() const;
};
}  // namespace server

namespace api {
struct InitConfig {
    uint32_t shm_type;
    std::string shm_dev;
    uint32_t shm_addr, shm_size;
    std::string cp_addr;
    RpcCommandsTable* cmds;
};
}  // namespace api

}  // namespace corvo
