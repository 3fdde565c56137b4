// What the daemon promises to libraries that were built elsewhere: the names in promised_names.txt, and here
// what such a library has compiled in. Places, values and signatures are checked when this file is compiled,
// everything else by the method `closed.all`, which says for each check whether it holds.

#include <brumecpd/engine_api.h>
#include <dlfcn.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <utility>

#include "infra/corvo_notif_hub.h"
#include "infra/corvo_rpc_command.h"
#include "infra/corvo_scheduler.h"
#include "infra/corvo_socket_channel.h"
#include "infra/corvo_zip.h"
#include "infra/exports/corvo_malloc.h"
#include "infra/exports/corvo_mt.h"

using namespace corvo;
using namespace corvo::Logger;
using std::string;
using Text = const string&;

// The shims under their C++ names: their header, which isn't included, declares the C names.
int cv_timerfd_create(int, int), cv_timerfd_settime(int, int, const itimerspec*, itimerspec*),
    cv_nanosleep(const timespec*, timespec*), cv_socket(int, int, int),
    cv_bind(int, const sockaddr*, unsigned int), cv_listen(int, int),
    cv_connect(int, const sockaddr*, unsigned int), cv_socketpair(int, int, int, int*), cv_close(int),
    cv_epoll_create1(int), cv_epoll_ctl(int, int, int, epoll_event*),
    cv_epoll_wait(int, epoll_event*, int, int), cv_poll(pollfd*, unsigned long, int),
    cv_set_sock_send_qsize(int, unsigned int), cv_get_sock_send_qsize(int, unsigned int&);
long cv_send(int, const void*, unsigned int, int), cv_recv(int, void*, unsigned int, int);

// --- places of members

/** Where members of these types begin if they lie in this order. The last place is the size of the whole. */
template <class... Members>
constexpr auto places() {
    using Sizes = std::array<size_t, sizeof...(Members) + 1>;
    const Sizes sizes = {sizeof(Members)..., 0};
    const Sizes alignments = {alignof(Members)..., std::max({alignof(Members)...})};
    Sizes begins{};
    size_t at = 0;
    for (size_t i = 0; i < begins.size(); at += sizes[i++])
        begins[i] = at = (at + alignments[i] - 1) / alignments[i] * alignments[i];
    return begins;
}

template <class Whole, class... Members>
constexpr bool lie_at(const size_t (&begins)[sizeof...(Members)]) {
    const auto expected = places<Members...>();
    return std::equal(std::begin(begins), std::end(begins), expected.begin()) &&
           expected.back() == sizeof(Whole);
}

using Table = void*;
using Callback = std::function<void()>;
using List = std::vector<int>;
using Map = std::unordered_map<string, int>;
using Shared = std::shared_ptr<int>;
using Pair = SocketChannelPair;
using api::InitConfig;
using notif::Filter;
using notif::Severity;
using notif::Subscriber;
using Note = notif::Event;

static_assert(lie_at<EventRC, uint32_t, uint32_t, EventState>(
    {offsetof(EventRC, action), offsetof(EventRC, timeout_ms), offsetof(EventRC, state)}));
static_assert(lie_at<Event, Table, int, List>({0, offsetof(Event, m_fd), offsetof(Event, m_completion_cbs)}));
static_assert(lie_at<Task, Table, uint64_t, int32_t>({0, offsetof(Task, m_when),
                                                      offsetof(Task, m_hog_timeout_ms)}));
static_assert(lie_at<SocketChannel, Event, Callback, unsigned, string>({0, offsetof(SocketChannel, m_handler),
                                                                        offsetof(SocketChannel, m_timeout_ms),
                                                                        offsetof(SocketChannel, m_name)}));
static_assert(lie_at<Pair, Shared, Shared>({offsetof(Pair, m_first), offsetof(Pair, m_second)}));
static_assert(lie_at<CStrRef, const char*, string>({offsetof(CStrRef, m_text), offsetof(CStrRef, m_owned)}));
static_assert(lie_at<LoggerInstance, Table, logger_level_e, void*, string, Map>(
    {0, offsetof(LoggerInstance, m_level), offsetof(LoggerInstance, m_file),
     offsetof(LoggerInstance, m_filename), offsetof(LoggerInstance, m_comps)}));
static_assert(lie_at<Note, Table, uint64_t, string, string, Severity, string, int64_t>(
    {0, offsetof(Note, id), offsetof(Note, feature), offsetof(Note, name), offsetof(Note, severity),
     offsetof(Note, desc), offsetof(Note, ts)}));
static_assert(lie_at<Filter, string, string, Severity>({offsetof(Filter, feature), offsetof(Filter, name),
                                                        offsetof(Filter, severity)}));
static_assert(lie_at<Subscriber, Table, Filter, uint64_t>({0, offsetof(Subscriber, m_filter),
                                                           offsetof(Subscriber, m_hits)}));
static_assert(lie_at<RpcCommandException, std::runtime_error, uint32_t>({0, offsetof(RpcCommandException,
                                                                                     m_rc)}));
static_assert(lie_at<RpcCommand, Table, string>({0, offsetof(RpcCommand, m_name)}));
static_assert(lie_at<RpcComponent, string, List>({offsetof(RpcComponent, m_name),
                                                  offsetof(RpcComponent, m_commands)}));
static_assert(lie_at<InitConfig, uint32_t, string, uint32_t, uint32_t, string, void*>(
    {offsetof(InitConfig, shm_type), offsetof(InitConfig, shm_dev), offsetof(InitConfig, shm_addr),
     offsetof(InitConfig, shm_size), offsetof(InitConfig, cp_addr), offsetof(InitConfig, cmds)}));

// Libraries may have a scheduler, a hub or a table of their own, and set aside no more than this.
constexpr size_t POLLER_SIZE = places<int, Map, std::multiset<std::pair<int, EventExpireReason>>>().back();
static_assert(sizeof(EventPoller) <= POLLER_SIZE &&
              sizeof(Scheduler) <=
                  sizeof(std::multiset<int>) + POLLER_SIZE + places<int, Callback, void*>().back() &&
              sizeof(notif::Notif) <= sizeof(List) &&
              sizeof(RpcCommandsTable) <= places<List, Map, bool>().back() &&
              sizeof(corvo_mt_client_) == 112 && sizeof(cvmalloc_stats_) == 12);

// --- values

static_assert(EVENT_STATE_NONE == 0 && EVENT_STATE_READ == 2 && EVENT_STATE_WRITE == 3 &&
              EVENT_STATE_READ_WRITE == 4 && EVENT_EXPIRE_READY == 0 && EVENT_EXPIRE_TIMEOUT == 1 &&
              EventRC::ACTION_REARM == 0 && EventRC::ACTION_DONE == 1 && Scheduler::SCHED_EVENT_STOP == 0);
static_assert(CHANNEL_OK == 0 && CHANNEL_SEND_AGAIN == 1 && CHANNEL_RECV_AGAIN == 2 && CHANNEL_TIMEOUT == 3);
static_assert(QUIET == 0 && ERROR == 1 && WARN == 2 && INFO == 3 && DEBUG == 4 && INHERITED == 5 &&
              LOGGER_CONSOLE == 0 && LOGGER_SYSLOG == 1);
static_assert(notif::SEV_ANY == 0 && notif::SEV_INFO == 1 && notif::SEV_WARN == 2 && notif::SEV_SEVERE == 3);
static_assert(RpcParser::TYPE_BYTE == 0 && RpcParser::TYPE_STRING == 8 && RpcParser::TYPE_ARRAY == 10);

// --- virtual functions: a library's own classes have them with these signatures and in this order

namespace own {

struct Event : corvo::Event {
    string get_name() const override;
    EventRC do_work(const EventExpireReason&) override;
    virtual void next();
};
struct Task : corvo::Task {
    int execute() override { return -1; }
    string get_name() const override { return "own"; }
    int64_t hog_timeout_ms() const override { return 0; }
    virtual void next() {}
};
struct Channel : SocketChannel {
    string get_name() const override;
    EventRC do_work(const EventExpireReason&) override;
    state_e push(Text) const override, pop(string&, int) const override;
    void set_handler(handler_cb) override;
    handler_cb get_handler() override;
    long _send(int, Text) const override, _recv(int, string&) const override;
    state_e _poll(int, int) const override;
    virtual void next();
};
struct Logger : LoggerInstance {
    void log(const char*, int, Text, const char*, logger_level_e, va_list) override;
    void history(std::vector<string>&, unsigned) override;
    void set_verbosity(logger_level_e) override, set_verbosity(logger_level_e, Text) override;
    void reset_verbosity(logger_level_e) override;
    const char* get_verbosity() override;
    logger_level_e get_comp_verb(Text) override;
    std::unordered_map<string, logger_level_e> get_verbosity_comps() override;
    string get_log_filename() override;
    void write(const char*, va_list, bool) override, flush() override;
    virtual void next();
};
struct Subscriber : notif::Subscriber {
    int execute_(const notif::Event&) override;
    string uid() const override;
    virtual void next();
};
struct Command : RpcCommand {
    int _run(Text, const Json::Value&, Json::Value&) override;
    virtual void next();
};

}  // namespace own

/** Whether these virtual functions come in this order right after the destructor. */
template <class... Functions>
bool follow(Functions... functions) {
    uintptr_t slots[sizeof...(functions)], expected = 2 * sizeof(void*), *slot = slots;
    // By the ABI, such a pointer begins with the function's place in the table; on some machines, plus one.
    (std::memcpy(slot++, &functions, sizeof *slot), ...);
    return std::all_of(std::begin(slots), std::end(slots), [&](uintptr_t place) {
        return (place & ~uintptr_t{1}) == std::exchange(expected, expected + sizeof(void*));
    });
}

Json::Value virtual_functions() {
    using L = own::Logger;
    using C = own::Channel;
    return follow(&own::Event::get_name, &own::Event::do_work, &own::Event::next) &&
           follow(&own::Task::execute, &own::Task::get_name, &own::Task::hog_timeout_ms, &own::Task::next) &&
           follow(&C::get_name, &C::do_work, &C::push, &C::pop, &C::set_handler, &C::get_handler, &C::_send,
                  &C::_recv, &C::_poll, &C::next) &&
           follow(&L::log, &L::history, static_cast<void (L::*)(logger_level_e)>(&L::set_verbosity),
                  static_cast<void (L::*)(logger_level_e, Text)>(&L::set_verbosity), &L::reset_verbosity,
                  &L::get_verbosity, &L::get_comp_verb, &L::get_verbosity_comps, &L::get_log_filename,
                  &L::write, &L::flush, &L::next) &&
           follow(&own::Subscriber::execute_, &own::Subscriber::uid, &own::Subscriber::next) &&
           follow(&own::Command::_run, &own::Command::next);
}

// --- functions

/** True, or a text with the names that the daemon doesn't export. */
Json::Value names() {
    void* const daemon = dlopen(nullptr, RTLD_LAZY);
    string missing;
    std::ifstream promised(PROMISED_NAMES);
    for (string name; promised >> name;)
        if (!dlsym(daemon, name.c_str())) missing += " " + name;
    dlclose(daemon);
    return promised.eof() && missing.empty() ? Json::Value(true) : Json::Value("missing:" + missing);
}

Json::Value system_calls() {
    int fds[5] = {-1, -1, cv_epoll_create1(0), cv_timerfd_create(CLOCK_MONOTONIC, 0),
                  cv_socket(AF_UNIX, SOCK_STREAM, 0)};
    epoll_event event{EPOLLIN, {}};
    const itimerspec hour{{}, {3600, 0}}, soon{{}, {0, 1}};
    itimerspec before{};
    const sockaddr any{AF_UNIX, ""}, nobody{AF_UNSPEC, ""};
    char byte = 0;
    unsigned size = 0;
    bool ok = cv_socketpair(AF_UNIX, SOCK_DGRAM, 0, fds) == 0;
    pollfd waiting{fds[0], POLLIN, 0}, expired{fds[3], POLLIN, 0};
    ok = ok && cv_epoll_ctl(fds[2], EPOLL_CTL_ADD, fds[0], &event) == 0 && cv_send(fds[1], "x", 1, 0) == 1 &&
         cv_poll(&waiting, 1, 0) == 1 && cv_epoll_wait(fds[2], &event, 1, 0) == 1 &&
         cv_recv(fds[0], &byte, 1, 0) == 1 && cv_timerfd_settime(fds[3], 0, &hour, nullptr) == 0 &&
         cv_timerfd_settime(fds[3], 0, &soon, &before) == 0 && before.it_value.tv_sec > 3500 &&
         cv_poll(&expired, 1, 10000) == 1 && cv_nanosleep(&soon.it_value, nullptr) == 0 &&
         cv_bind(fds[4], &any, sizeof any.sa_family) == 0 && cv_listen(fds[4], 1) == 0 &&
         cv_connect(fds[1], &nobody, sizeof nobody) == 0 && cv_set_sock_send_qsize(fds[0], 16384) == 0 &&
         cv_get_sock_send_qsize(fds[0], size) == 0 &&
         size == 32768;  // the kernel tells twice what was asked for
    ok = ok && cv_set_sock_send_qsize(fds[0], INT_MAX) == -1 && errno == EFBIG &&
         cv_set_sock_send_qsize(-1, 1) == -1 && errno == EBADF;
    return std::all_of(fds, fds + 5, [](int fd) { return cv_close(fd) == 0; }) && ok;
}

/** Nothing else calls these. */
Json::Value functions_for_libraries() {
    void* grown = cvrealloc(cvmalloc(8), 16);
    auto* zeroed = static_cast<char*>(cvcalloc(2, 4));
    auto* large = static_cast<char*>(cvcalloc_large(8));
    cvmalloc_stats_ stats{};
    const bool memory = grown && zeroed[7] == 0 && large[7] == 0 && cvmalloc_stats(&stats) == 0 &&
                        stats.heap_size >= stats.used && cvmalloc_trim(0) >= 0;
    cvfree(grown);
    cvfree(zeroed);
    cvfree_large(large, 8);

    corvo_mt_client_ client{"?"};
    const bool tracer = !corvo_mt_supported() && corvo_mt_get(1, &client) == -EOPNOTSUPP &&
                        client.opaque[0] == 0 && corvo_mt_register_client("c") == -1 &&
                        corvo_mt_set_active_client(1) == 0 && corvo_mt_get_active_client() == -1 &&
                        corvo_mt_pause() == -1 && corvo_mt_ext_align_size(7) == 7;

    Scheduler scheduler;
    const auto task = std::make_shared<own::Task>();
    scheduler.add(std::shared_ptr<Task>(task), 1000);
    SocketChannel channel(
        "own", 1, [](state_e, Text, string&) {}, 0);
    return memory && tracer && scheduler.has_task(task.get()) && channel.get_handler() &&
           !rpc::RpcZip::is_compressed("");
}

const struct {
    const char* family;
    Json::Value (*holds)();
} FAMILIES[] = {
    {"names", names},
    {"virtual functions", virtual_functions},
    {"system calls", system_calls},
    {"functions for libraries", functions_for_libraries},
};

struct All : RpcCommand {
    All() : RpcCommand("all") {}
    int _run(Text, const Json::Value&, Json::Value& res) override {
        for (const auto& [family, holds] : FAMILIES)
            res["result"][family] = holds();
        return CMD_OK;
    }
};

extern int g_evfd;
RpcCommandsTable* g_cmds = nullptr;

void corvo_api_cp_init(const InitConfig& config, string&) {
    g_cmds = config.cmds;
    auto component = std::make_unique<RpcComponent>("closed");
    component->add(new All);
    g_cmds->load_component(component.release());
    g_evfd = eventfd(0, EFD_CLOEXEC);
}

void corvo_api_cp_deinit(string&) {
    const std::unique_ptr<RpcComponent> component(g_cmds->lookup_component("closed"));
    g_cmds->unload_component("closed");
    cv_close(g_evfd);
}
