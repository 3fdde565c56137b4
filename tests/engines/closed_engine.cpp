// An engine that was built without the sources: it derives from the daemon's classes and reads their members,
// each with the layout of its own declarations. Its method `closed.all` tells which families of them fit.

#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>

#include "engines/closed_api.h"

namespace {

using namespace corvo;

int g_evfd = -1;
RpcCommandsTable* g_cmds = nullptr;

bool plain_data(Text) {
    using V = Version;
    cvmalloc_stats_ stats{};
    corvo_mt_client_ client, zero{};
    memset(&client, 0xff, sizeof client);
    // As bytes: what is a bool can't be wrong, and nobody would look at it.
    for (const bool* flag :
         {&V::g_is_dev_image, &V::g_bare_metal, &V::g_have_dw, &V::g_in_slave_mode, &V::g_is_optimized})
        if (*reinterpret_cast<const unsigned char*>(flag) > 1) return false;
    return std::string("dev @ ") + V::g_gitsha == V::g_version && V::g_sanitizer < 3 &&
           server::Server::g_ptr->get_uptime() >= 0 && basis_64[1] == 'B' && pr2six['B'] == 1 &&
           cvmalloc_stats(&stats) == 0 && stats.total >= stats.used &&
           (stats.used > 0 || V::g_sanitizer != 0) && corvo_mt_get(1, &client) == -EOPNOTSUPP &&
           memcmp(&client, &zero, sizeof zero) == 0 &&
           Exception("a", ENOENT).what() == std::string("a : No such file or directory");
}

/** Is ready three times. */
struct Counter : corvo::Event {
    Counter() { m_fd = eventfd(1, EFD_CLOEXEC); }
    ~Counter() override { cv_close(m_fd); }
    std::string get_name() const override { return "counter"; }
    EventRC do_work(const EventExpireReason& reason) override {
        const EventRC again[] = {resched(EVENT_STATE_READ, 1), resched(1)};
        return reason == EVENT_EXPIRE_READY && runs < 2 ? again[runs++] : done();
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
    const auto event = std::make_shared<Counter>();
    EventPoller poller;
    poller.add(event, EVENT_STATE_READ, 0);
    bool ok = poller.handle_pending_events(0) && event->runs == 1 && poller.m_active.size() == 1 &&
              poller.m_active.begin()->second.timeout_ms == 1;
    ok = ok && poller.handle_pending_events(0) && poller.handle_pending_events(0) && poller.m_active.empty();

    Scheduler sched;
    const auto task = std::make_shared<Stopper>(sched);
    const uint64_t before = Scheduler::now();
    sched.add(task, 0);
    return ok && event->runs == 2 && task->hog_timeout_ms() == 300 && task->m_hog_timeout_ms == 300 &&
           task->m_when - before < 1000 && sched.m_tasks.size() == 2 && sched.run() == 3 && task->runs == 20;
}

bool channels(Text) {
    const SocketChannelPair pair("pair");
    SocketChannel &first = *pair.first, &second = *pair.second;
    std::string got;
    bool ok = first.get_name() == "pair" && first.push("hello") == CHANNEL_OK &&
              second.pop(got, 100) == CHANNEL_OK && got == "hello" &&
              second.pop(got, 0) == CHANNEL_RECV_AGAIN && second._poll(second.m_fd, 0) == CHANNEL_TIMEOUT;
    const auto own = std::make_unique<SocketChannel>("own", second.m_fd, handler_cb(), 7);
    Channel& channel = *own;
    channel.set_handler([](state_e, Text in, std::string& out) { out = in + "!"; });
    ok = ok && channel.get_handler() && first._send(first.m_fd, "again") == 5 && own->m_name == "own" &&
         channel.do_work(EVENT_EXPIRE_READY).timeout_ms == 7;
    return ok && first._recv(first.m_fd, got) == 6 && got == "again!";
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

/** Puts others into the place of the daemon's own logger: first one of ours, then one of its own making. */
bool logger(Text dir) {
    using namespace Logger;
    const std::string daemons = get_log_filename(), file = dir + "/closed.log";
    std::vector<std::string> lines;
    Memory memory(INFO, file);
    set_logger(&memory);
    xlog("file", 1, ERROR, "closed", std::string("text %d"), 5);
    bool ok = memory.text.find("Text 5") != std::string::npos && memory.m_level == INFO && memory.m_file &&
              memory.m_filename == file && memory.m_comps.count("closed") == 1;
    open_logger(LOGGER_CONSOLE, INFO, file);
    LoggerInstance& current = *get_logger();
    current.set_verbosity(ERROR);
    current.set_verbosity(DEBUG, "closed");
    current.history(lines, 2);
    ok = ok && lines.size() == 1 && current.get_verbosity() == std::string("ERROR") &&
         current.get_log_filename() == file && current.get_comp_verb("closed") == DEBUG &&
         current.get_verbosity_comps().size() == 1;
    current.reset_verbosity(QUIET);
    current.flush();
    ok = ok && current.m_level == QUIET && current.m_comps.empty();
    close_logger();
    ok = ok && get_log_filename().empty();
    open_logger(LOGGER_CONSOLE, INFO, daemons);
    return ok;
}

struct Listener : notif::Subscriber {
    Listener(std::string& heard) : Subscriber({"*", "a", notif::SEV_WARN}), m_heard(heard) {}
    int execute_(const notif::Event& event) override {
        m_heard += event.feature + event.name + event.desc;
        return 0;
    }
    std::string uid() const override { return "listener"; }
    std::string& m_heard;
};

bool notifications(Text) {
    std::string heard;
    const notif::Event event("closed.", "a", notif::SEV_WARN, " heard");
    notif::Notif hub;
    hub.subscribe(std::make_unique<Listener>(heard));
    hub.notify(event);
    hub.notify({"closed.", "b", notif::SEV_WARN, "not"});
    return notif::Event::g_id == event.id + 1 && event.severity == notif::SEV_WARN && event.ts > 1600000000 &&
           heard == "closed.a heard" && hub.m_subs.size() == 3 && hub.m_subs[2]->uid() == "listener" &&
           hub.m_subs[2]->hits == 1;
}

struct Failing : RpcCommand {
    Failing() : RpcCommand("failing") {}
    int _run(Text, const Json::Value& params, Json::Value&) override {
        if (params == 4) throw RpcCommandException("again", 4);
        return 6;
    }
};

bool commands(Text) {
    Json::Value res;
    RpcCommandsTable table;
    const auto component = std::make_unique<RpcComponent>("c");
    component->add(new Failing);
    table.load_component(component.get());
    RpcCommand* command = table.lookup("c.failing");
    if (!command) return false;
    bool ok = command->m_name == "failing" && component->m_commands.size() == 1 &&
              table.lookup_component("c") == component.get() && component->m_name == "c" &&
              command->type_to_str(RpcParser::TYPE_ARRAY) == std::string("array") &&
              command->run("m", 4, res) == 4 && command->run("m", "", res) == 6;
    table.unload_component("c");
    try {
        command->check_field_type(Json::Value(), "f", RpcParser::TYPE_BYTE, res);
    } catch (const RpcCommandException& e) {
        return ok && e.m_rc == 1 && res["specific_err"] == e.what();
    }
    return false;
}

const struct {
    const char* family;
    bool (*works)(Text dir);
} FAMILIES[] = {
    {"plain data", plain_data}, {"events and tasks", events_and_tasks}, {"channels", channels},
    {"logger", logger},         {"notifications", notifications},       {"commands", commands},
};

struct All : RpcCommand {
    All() : RpcCommand("all") {}
    int _run(Text, const Json::Value& params, Json::Value& res) override {
        for (const auto& [family, works] : FAMILIES)
            res["result"][family] = works(params["dir"].asString());
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
