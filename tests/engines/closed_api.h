#pragma once
// What a library that was built elsewhere knows of the daemon: declarations written anew, by hand. Nothing of
// the sources is included, so that a name, a layout or an order that changes there is noticed here.

#include <json/value.h>
#include <pthread.h>
#include <sys/socket.h>

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

struct epoll_event;
struct itimerspec;
struct pollfd;

using Text = const std::string&;

// --- system calls, memory, locks, memory tracer
int cv_timerfd_create(int, int), cv_timerfd_settime(int, int, const itimerspec*, itimerspec*),
    cv_nanosleep(const timespec*, timespec*), cv_socket(int, int, int),
    cv_bind(int, const sockaddr*, unsigned int), cv_listen(int, int),
    cv_connect(int, const sockaddr*, unsigned int), cv_socketpair(int, int, int, int*), cv_close(int),
    cv_epoll_create1(int), cv_epoll_ctl(int, int, int, epoll_event*),
    cv_epoll_wait(int, epoll_event*, int, int), cv_poll(pollfd*, unsigned long, int),
    cv_set_sock_send_qsize(int, unsigned int), cv_get_sock_send_qsize(int, unsigned int&);
long cv_send(int, const void*, unsigned int, int), cv_recv(int, void*, unsigned int, int);

struct cvmalloc_stats_ {
    uint32_t total, used, free;
};
void *cvmalloc(unsigned int), *cvcalloc(unsigned int, unsigned int), *cvrealloc(void*, unsigned int),
    *cvcalloc_large(unsigned int);
void cvfree(void*), cvfree_large(void*, unsigned int);
int cvmalloc_trim(int), cvmalloc_stats(cvmalloc_stats_*);

void corvo_lock_init(pthread_mutex_t*), corvo_lock_lock(pthread_mutex_t*),
    corvo_lock_unlock(pthread_mutex_t*);

struct corvo_mt_client_ {
    char bytes[112];
};
bool corvo_mt_supported();
int corvo_mt_get(int, corvo_mt_client_*), corvo_mt_register_client(const char*),
    corvo_mt_set_active_client(int), corvo_mt_get_active_client(), corvo_mt_pause();
unsigned int corvo_mt_ext_align_size(unsigned int);
void corvo_mt_resume(int), corvo_mt_ext_on_malloc(int, unsigned int, void*),
    corvo_mt_ext_on_free(int, unsigned int, void*), corvo_mt_ext_track(void*, unsigned int),
    corvo_mt_ext_untrack(void*, unsigned int);

// --- compression and base64
bool corvo_zip_is_zipped(const char*, unsigned);
int corvo_zip_zip(const char*, unsigned, char**), corvo_zip_zip_raw(const char*, unsigned, char**),
    corvo_zip_zip(Text, std::string&, bool), corvo_zip_unzip(const char*, unsigned, char**);
void corvo_zip_destroy(char*);
extern const char basis_64[65];
extern const unsigned char pr2six[256];
int b64_elen(int), b64_dlen(const char*), b64_encode(char*, const char*, int), b64_decode(char*, const char*);
std::string b64_encode(const char*, unsigned), b64_encode(Text), b64_decode(Text);

namespace corvo {

namespace rpc {
struct RpcZip {
    static bool is_compressed(Text);
    static int uncompress(Text, std::string&), compress(Text, std::string&);
};
}  // namespace rpc

struct Version {
    static const char* const g_version;
    static const char* const g_gitsha;
    static const bool g_is_dev_image, g_bare_metal, g_have_dw, g_in_slave_mode, g_is_optimized;
    static const int g_sanitizer;
};

struct Exception : std::runtime_error {
    Exception(Text);
    Exception(Text, int);
};

// --- events and tasks
enum EventState : uint32_t {
    EVENT_STATE_NONE,
    EVENT_STATE_READ = 2,
    EVENT_STATE_WRITE,
    EVENT_STATE_READ_WRITE
};
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
    EventRC done() const, resched(unsigned int) const, resched(EventState) const,
        resched(EventState, unsigned int) const;
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
    void init(), add(const std::shared_ptr<Event>&, EventState, unsigned int);
    bool remove(const Event*), exists(const Event*) const;
    void clear();
    bool wait(int), handle_pending_events(int);
    void remove_expired(int), OSPoll(int);
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
    enum event_e { SCHED_EVENT_STOP };
    Scheduler();
    ~Scheduler();
    void add(std::shared_ptr<Task>&&, unsigned int), add(const std::shared_ptr<Task>&, unsigned int),
        add(const std::shared_ptr<Event>&, EventState, unsigned int);
    bool remove(const Task*), remove(const Event*), exists(const Task*) const, exists(const Event*) const,
        has_task(Task*);
    void stop(int);
    bool wait(unsigned int), handle_pending_events(int);
    static uint64_t now();
    void register_to_scheduler_event(event_e, std::function<void(int)>);
    int step(), run();
    void clear(), stats(Json::Value&) const;
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
enum logger_type_e : unsigned { LOGGER_CONSOLE, LOGGER_SYSLOG };
struct CStrRef {
    CStrRef(const char*);
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
    bool pred(logger_level_e, Text);
    const char* level_to_str(logger_level_e);
    logger_level_e m_level;
    FILE* m_file;
    std::string m_filename;
    std::unordered_map<std::string, logger_level_e> m_comps;
};
LoggerInstance* get_logger();
void open_logger(logger_type_e, logger_level_e, Text), close_logger(), set_logger(LoggerInstance*);
bool pred(logger_level_e, Text);
void xlog(const char*, int, logger_level_e, Text, CStrRef, ...),
    vlog(const char*, int, logger_level_e, Text, CStrRef, va_list),
    history(std::vector<std::string>&, unsigned int);
std::string get_log_filename();
void clear_log_file(Text);
}  // namespace Logger

// --- notifications
namespace notif {
enum Severity { SEV_ANY, SEV_INFO, SEV_WARN, SEV_SEVERE };
void __notify(Text, Text, Severity, Text), __ops(const Json::Value&, Json::Value&);
struct Event {
    Event(Text, Text, Severity, Text);
    virtual ~Event();
    void to_json(Json::Value&) const;
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
    void subscribe(std::unique_ptr<Subscriber>&&), unsubscribe(Text), notify(const Event&);
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
    const char* json_type_to_name(const Json::Value&);
    void check_field_type(const Json::Value&, Text, field_type_e, Json::Value&),
        check_field_type(const Json::Value&, int, field_type_e, Json::Value&),
        check_field_type_common(const Json::Value&, Text, field_type_e, Json::Value&);
    template <typename T>
    T parse_choice(const Json::Value&, Text, std::initializer_list<T>, Json::Value&);
    template <typename T>
    const std::string parse_string(const Json::Value& params, const T& name, Json::Value& res) {
        check_field_type(params, name, TYPE_STRING, res);
        return params[name].asString();
    }
    void validate_path(Text, Json::Value&), validate_file(Text, Json::Value&),
        validate_ip(Text, Json::Value&), generate_parse_err(Json::Value&, Text),
        generate_parser_execute_err(Json::Value&, Text);
};
template <>
const char* RpcParser::parse_choice<const char*>(const Json::Value&, Text, std::initializer_list<const char*>,
                                                 Json::Value&);
struct RpcCommand : RpcParser {
    RpcCommand(Text);
    virtual ~RpcCommand();
    virtual int _run(Text, const Json::Value&, Json::Value&) = 0;
    int run(Text, const Json::Value&, Json::Value&);
    void generate_execute_err(Json::Value&, Text), generate_internal_err(Json::Value&, Text);
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
    void init(Text, int, int), reset(), load_component(RpcComponent*), unload_component(Text);
    RpcComponent* lookup_component(Text);
    RpcCommand* lookup(Text) const;
    void query(std::vector<std::string>&);
    std::vector<RpcComponent*> m_components;
    std::unordered_map<std::string, RpcCommand*> m_commands;
    bool m_initialised;
};

// --- the server
namespace server {
struct Server {
    static Server* g_ptr;
    const char* exitcause_to_str(int) const;
    void handle_rpc_request(Text, std::string&);
    int get_uptime() const;
    bool file_exists(Text) const;
    void get_rpc_cmds(std::vector<std::string>&);
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
