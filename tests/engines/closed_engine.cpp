// An engine that was built without the sources: it calls all that the daemon promises to a library, each by
// the name and with the layout of its own declarations. Its method `closed.all` tells which families of
// functions worked.

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "engines/closed_api.h"

namespace {

using namespace corvo;

int g_evfd = -1;
RpcCommandsTable* g_cmds = nullptr;

bool system_calls(Text) {
    int fds[5] = {-1, -1, cv_epoll_create1(0), cv_timerfd_create(CLOCK_MONOTONIC, 0),
                  cv_socket(AF_UNIX, SOCK_STREAM, 0)};
    epoll_event event{EPOLLIN, {}};
    const itimerspec once{{}, {0, 1}};
    const sockaddr any{AF_UNIX, ""}, nobody{AF_UNSPEC, ""};
    char byte = 0;
    unsigned size = 0;
    bool ok = cv_socketpair(AF_UNIX, SOCK_DGRAM, 0, fds) == 0;
    pollfd waiting{fds[0], POLLIN, 0};
    ok = ok && cv_epoll_ctl(fds[2], EPOLL_CTL_ADD, fds[0], &event) == 0 && cv_send(fds[1], "x", 1, 0) == 1 &&
         cv_poll(&waiting, 1, 0) == 1 && cv_epoll_wait(fds[2], &event, 1, 0) == 1 &&
         cv_recv(fds[0], &byte, 1, 0) == 1 && cv_timerfd_settime(fds[3], 0, &once, nullptr) == 0 &&
         cv_nanosleep(&once.it_value, nullptr) == 0 && cv_bind(fds[4], &any, sizeof any.sa_family) == 0 &&
         cv_listen(fds[4], 1) == 0 && cv_connect(fds[1], &nobody, sizeof nobody) == 0 &&
         cv_set_sock_send_qsize(fds[0], 4096) == 0 && cv_get_sock_send_qsize(fds[0], size) == 0 &&
         size >= 4096;
    return std::all_of(fds, fds + 5, [](int fd) { return cv_close(fd) == 0; }) && ok;
}

bool memory_and_locks(Text) {
    void* grown = cvrealloc(cvmalloc(8), 16);
    auto* zeroed = static_cast<char*>(cvcalloc(2, 4));
    auto* large = static_cast<char*>(cvcalloc_large(8));
    cvmalloc_stats_ stats{};
    bool ok = grown && zeroed[7] == 0 && large[7] == 0 && cvmalloc_stats(&stats) == 0 &&
              stats.total >= stats.used && cvmalloc_trim(0) >= 0;
    cvfree(grown);
    cvfree(zeroed);
    cvfree_large(large, 8);

    pthread_mutex_t mutex;
    corvo_lock_init(&mutex);
    corvo_lock_lock(&mutex);
    corvo_lock_lock(&mutex);
    corvo_lock_unlock(&mutex);
    corvo_lock_unlock(&mutex);
    return ok && pthread_mutex_destroy(&mutex) == 0;
}

bool memory_tracer(Text) {
    corvo_mt_client_ client{"?"};
    corvo_mt_resume(1);
    corvo_mt_ext_on_malloc(1, 1, nullptr);
    corvo_mt_ext_on_free(1, 1, nullptr);
    corvo_mt_ext_track(nullptr, 1);
    corvo_mt_ext_untrack(nullptr, 1);
    return !corvo_mt_supported() && corvo_mt_get(1, &client) == -EOPNOTSUPP && client.bytes[0] == 0 &&
           corvo_mt_register_client("c") == -1 && corvo_mt_set_active_client(1) == 0 &&
           corvo_mt_get_active_client() == -1 && corvo_mt_pause() == -1 && corvo_mt_ext_align_size(7) == 7;
}

bool compression(Text) {
    const std::string text(100, 'a');
    char *packed = nullptr, *raw = nullptr, *plain = nullptr;
    const int size = corvo_zip_zip(text.data(), 100, &packed),
              raw_size = corvo_zip_zip_raw(text.data(), 100, &raw);
    std::string container, none;
    bool ok = size == raw_size + 8 && corvo_zip_zip(text, container, true) == size &&
              container == std::string(packed, size) && corvo_zip_is_zipped(packed, size) &&
              corvo_zip_unzip(packed, size, &plain) == 100 && std::string(plain, 100) == text &&
              !rpc::RpcZip::is_compressed(container) && rpc::RpcZip::compress(text, none) == 0 &&
              rpc::RpcZip::uncompress(container, none) == 0;
    for (char* buffer : {packed, raw, plain})
        corvo_zip_destroy(buffer);

    char encoded[8], decoded[8];
    return ok && b64_elen(2) == 5 && b64_encode(encoded, "ab", 2) == 5 && b64_encode("ab", 2U) == encoded &&
           b64_encode(std::string("ab")) == "YWI=" && b64_dlen(encoded) >= 3 &&
           b64_decode(decoded, encoded) == 2 && b64_decode(std::string("YWI=")) == decoded &&
           basis_64[1] == 'B' && pr2six['B'] == 1;
}

bool version_and_server(Text) {
    using V = Version;
    server::Server& server = *server::Server::g_ptr;
    std::vector<std::string> methods;
    server.get_rpc_cmds(methods);
    std::string reply;
    server.handle_rpc_request(R"({"jsonrpc":"2.0","id":1,"method":"closed.none"})", reply);
    // As bytes: what is a bool can't be wrong, and nobody would look at it.
    for (const bool* flag :
         {&V::g_is_dev_image, &V::g_bare_metal, &V::g_have_dw, &V::g_in_slave_mode, &V::g_is_optimized})
        if (*reinterpret_cast<const unsigned char*>(flag) > 1) return false;
    return std::string("dev @ ") + V::g_gitsha == V::g_version && V::g_sanitizer < 3 &&
           server.get_uptime() >= 0 && server.file_exists("/dev/null") &&
           server.exitcause_to_str(3) == std::string("received signal SIGTERM") &&
           std::count(methods.begin(), methods.end(), "closed.all") == 1 &&
           reply.find("not registered") != std::string::npos;
}

/** Takes one count and ends at the next. */
struct Counter : corvo::Event {
    Counter() { m_fd = eventfd(1, EFD_CLOEXEC | EFD_SEMAPHORE); }
    ~Counter() override { cv_close(m_fd); }
    std::string get_name() const override { return "counter"; }
    EventRC do_work(const EventExpireReason& reason) override {
        eventfd_t count = 0;
        if (reason == EVENT_EXPIRE_READY) eventfd_read(m_fd, &count);
        eventfd_write(m_fd, 1);
        const EventRC again[] = {resched(EVENT_STATE_READ), resched(EVENT_STATE_READ, 1), resched(1)};
        return ++runs < 3 ? again[runs] : done();
    }
    int runs = 0;
};

struct Stopper : Task {
    explicit Stopper(Scheduler& scheduler) : sched(scheduler) {}
    int execute() override {
        if (++runs == 20) sched.stop(3);
        return 1;
    }
    std::string get_name() const override { return "stopper"; }
    Scheduler& sched;
    int runs = 0;
};

bool events_and_tasks(Text) {
    auto event = std::make_shared<Counter>();
    EventPoller poller;
    poller.init();
    poller.add(event, EVENT_STATE_READ, 0);
    bool ok = poller.exists(event.get()) && poller.wait(0);
    poller.OSPoll(0);
    poller.remove_expired(event->m_fd);
    ok = ok && poller.handle_pending_events(0) && event->runs == 1 && poller.remove(event.get());
    poller.clear();

    Scheduler sched;
    auto task = std::make_shared<Stopper>(sched), other = std::make_shared<Stopper>(sched);
    int cause = 0;
    sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [&](int told) { cause = told; });
    sched.add(std::shared_ptr<Task>(task), 0);
    const std::shared_ptr<Task> second = other;
    sched.add(second, 1000);
    sched.add(event, EVENT_STATE_READ, 0);
    Json::Value stats;
    sched.stats(stats);
    ok = ok && stats["tasks"]["tasks"].size() == 3 && sched.exists(task.get()) &&
         sched.has_task(other.get()) && sched.exists(event.get()) && sched.remove(other.get()) &&
         task->hog_timeout_ms() == 300 && sched.step() == 0 && Scheduler::now() >= task->m_when - 1 &&
         sched.wait(1) && sched.handle_pending_events(0) && sched.run() == 3 && cause == 3;
    sched.clear();
    return ok && event->runs == 3 && task->runs == 20 && !sched.remove(event.get());
}

bool channels(Text) {
    const SocketChannelPair pair("pair");
    std::string got;
    bool ok = pair.first->get_name() == "pair" && pair.first->push("hello") == CHANNEL_OK &&
              pair.second->pop(got, 100) == CHANNEL_OK && got == "hello" &&
              pair.second->pop(got, 0) == CHANNEL_RECV_AGAIN &&
              pair.second->_poll(pair.second->m_fd, 0) == CHANNEL_TIMEOUT;
    const auto own = std::make_unique<SocketChannel>("own", pair.second->m_fd, handler_cb(), 7);
    SocketChannel& channel = *own;
    channel.set_handler([](state_e, Text in, std::string& out) { out = in + "!"; });
    ok = ok && channel.get_handler() && pair.first->_send(pair.first->m_fd, "again") == 5 &&
         channel.do_work(EVENT_EXPIRE_READY).timeout_ms == 7;
    return ok && pair.first->_recv(pair.first->m_fd, got) == 6 && got == "again!";
}

struct Memory : Logger::LoggerInstance {
    using LoggerInstance::LoggerInstance;
    void write(const char* fmt, va_list args, bool) override {
        char line[256];
        vsnprintf(line, sizeof line, fmt, args);
        text += line;
    }
    void flush() override {}
    std::string text;
};

void vlog(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    Logger::vlog("file", 1, Logger::WARN, "closed", fmt, args);
    va_end(args);
}

/** Puts others into the place of the daemon's own logger: first one of ours, then one of its own making. */
bool logger(Text dir) {
    using namespace Logger;
    const std::string daemons = get_log_filename(), file = dir + "/closed.log";
    std::vector<std::string> lines;
    clear_log_file(file);
    Memory memory(INFO, file);
    set_logger(&memory);
    xlog("file", 1, ERROR, "closed", std::string("text %d"), 5);
    vlog("again %d", 6);
    history(lines, 1);
    bool ok = get_logger() == &memory && memory.text.find("Text 5") != std::string::npos &&
              lines.size() == 1 && lines[0].ends_with("Again 6") && memory.m_level == INFO &&
              memory.m_filename == file && memory.m_comps.count("closed") == 1;

    open_logger(LOGGER_CONSOLE, INFO, file);
    LoggerInstance& current = *get_logger();
    ok = ok && current.get_verbosity() == std::string("INFO ") && current.get_log_filename() == file &&
         current.level_to_str(WARN) == std::string("WARN ") && current.pred(INFO, "closed");
    current.set_verbosity(ERROR);
    current.set_verbosity(DEBUG, "closed");
    ok = ok && pred(DEBUG, "closed") && !pred(WARN, "other") && current.get_comp_verb("closed") == DEBUG &&
         current.get_verbosity_comps()["other"] == INHERITED;
    current.reset_verbosity(QUIET);
    current.history(lines, 2);
    current.flush();
    ok = ok && !pred(ERROR, "closed") && lines.size() == 3;
    close_logger();
    ok = ok && get_log_filename().empty();
    open_logger(LOGGER_CONSOLE, INFO, daemons);
    return ok;
}

struct Listener : notif::Subscriber {
    Listener(std::string& heard) : Subscriber({"*", "a", notif::SEV_WARN}), m_heard(heard) {}
    int execute_(const notif::Event& event) override {
        m_heard += event.desc;
        return 0;
    }
    std::string uid() const override { return "listener"; }
    std::string& m_heard;
};

bool notifications(Text) {
    std::string heard;
    const uint64_t before = notif::Event::g_id;
    Json::Value json, params, res;
    params["cmd"] = "log";
    notif::__notify("closed", "event", notif::SEV_SEVERE, "text");
    notif::__ops(params, res);
    const Json::Value& log = res["notif"]["log"];
    const notif::Event event("closed", "a", notif::SEV_WARN, "heard");
    event.to_json(json);
    notif::Notif hub;
    hub.subscribe(std::make_unique<Listener>(heard));
    hub.notify(event);
    hub.notify({"closed", "b", notif::SEV_WARN, "not"});
    hub.unsubscribe("listener");
    return notif::Event::g_id == before + 3 && log[log.size() - 1]["desc"] == "text" &&
           json["id"] == Json::UInt64(event.id) && json["sev"] == "warn" && heard == "heard";
}

/** Fails as its parameters say. */
struct Failing : RpcCommand {
    Failing() : RpcCommand("failing") {}
    int _run(Text, const Json::Value& params, Json::Value& res) override {
        if (params == "execute") generate_execute_err(res, "text");
        if (params == "internal") generate_internal_err(res, "text");
        return 6;
    }
};

template <class Work>
bool fails(uint32_t rc, Work work) {
    Json::Value res;
    try {
        work(res);
    } catch (const RpcCommandException& e) {
        return e.m_rc == rc && res["specific_err"] == e.what();
    }
    return false;
}

bool commands(Text dir) {
    Failing command;
    Json::Value params, res;
    params["f"] = "word";
    params["list"].append("word");
    static const char* const WORD = "word";
    bool ok = command.type_to_str(RpcParser::TYPE_ARRAY) == std::string("array") &&
              command.json_type_to_name(params) == std::string("object") &&
              command.parse_string(params, "f", res) == "word" &&
              command.parse_choice<const char*>(params, "f", {"no", WORD}, res) == WORD;
    command.check_field_type(params, "f", RpcParser::TYPE_STRING, res);
    command.check_field_type(params["list"], 0, RpcParser::TYPE_STRING, res);
    command.validate_path(dir, res);
    command.validate_file("/proc/self/stat", res);
    command.validate_ip("::1", res);
    ok = ok &&
         fails(
             1,
             [&](Json::Value& r) { command.check_field_type(params["list"], 1, RpcParser::TYPE_BYTE, r); }) &&
         fails(1,
               [&](Json::Value& r) { command.check_field_type_common(5, "f", RpcParser::TYPE_STRING, r); }) &&
         fails(1, [&](Json::Value& r) { command.generate_parse_err(r, "text"); }) &&
         fails(2, [&](Json::Value& r) { command.generate_parser_execute_err(r, "text"); }) &&
         fails(4,
               [](Json::Value& r) {
                   r["specific_err"] = "again";
                   throw RpcCommandException("again", 4);
               }) &&
         command.run("m", "execute", res) == 2 && command.run("m", "internal", res) == 3 &&
         command.run("m", "", res) == 6;
    try {
        command.check_field_type("text", "f", RpcParser::TYPE_BYTE, res);
        ok = false;
    } catch (const Exception& e) {
        ok = ok && e.what() == std::string("internal parsing error") &&
             Exception("a").what() == std::string("a") &&
             Exception("a", ENOENT).what() == std::string("a : No such file or directory");
    }

    RpcCommandsTable table;
    table.init("", 0, 0);
    auto component = std::make_unique<RpcComponent>("c");
    component->add(new Failing);
    std::vector<std::string> keys;
    table.load_component(component.get());
    table.query(keys);
    ok = ok && keys == std::vector<std::string>{"c.failing"} && table.lookup("c.failing") &&
         table.lookup_component("c") == component.get();
    table.unload_component("c");
    table.load_component(new RpcComponent(""));
    table.reset();
    return ok && !table.lookup("c.failing");
}

const struct {
    const char* family;
    bool (*works)(Text dir);
} FAMILIES[] = {
    {"system calls", system_calls},
    {"memory and locks", memory_and_locks},
    {"memory tracer", memory_tracer},
    {"compression", compression},
    {"version and server", version_and_server},
    {"events and tasks", events_and_tasks},
    {"channels", channels},
    {"logger", logger},
    {"notifications", notifications},
    {"commands", commands},
};

struct All : RpcCommand {
    All() : RpcCommand("all") {}
    int _run(Text, const Json::Value& params, Json::Value& res) override {
        for (const auto& [family, works] : FAMILIES)
            res["result"][family] = works(parse_string(params, "dir", res));
        return 0;
    }
};

}  // namespace

extern "C" {
[[gnu::visibility("default")]] void corvo_api_cp_init(const api::InitConfig& config, std::string&) {
    g_cmds = config.cmds;
    auto component = std::make_unique<RpcComponent>("closed");
    component->add(new All);
    g_cmds->load_component(component.release());
    g_evfd = eventfd(0, EFD_CLOEXEC);
}

[[gnu::visibility("default")]] void corvo_api_cp_deinit(std::string&) {
    const std::unique_ptr<RpcComponent> component(g_cmds->lookup_component("closed"));
    g_cmds->unload_component("closed");
    cv_close(g_evfd);
}

[[gnu::visibility("default")]] void corvo_api_cp_get_evfd(int& fd, std::string&) {
    fd = g_evfd;
}
}
