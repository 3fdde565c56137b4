// An engine that a test scripts call by call (TEST_ENGINE_SCRIPT) and whose calls it can read afterwards
// (TEST_ENGINE_LOG). See README.md.

#include <brumecpd/engine_api.h>
#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>

namespace {

constexpr char HOSTILE[] = "100%s%n%d \x1b[2Jengine \xff\xfe \"quoted\\";

struct State {
    int evfd = -1;
    std::vector<std::string> interfaces;
    size_t packets = 0;  ///< pushed since init
};
State g_state;

/** Cuts at blanks. */
std::vector<std::string> split_words(const std::string& text) {
    std::istringstream words(text);
    std::vector<std::string> out;
    for (std::string word; words >> word;)
        out.push_back(word);
    return out;
}

/** The lines of the script as they are at this moment; without a readable file there are none. */
class Script {
 public:
    Script() {
        const char* path = getenv("TEST_ENGINE_SCRIPT");
        std::ifstream file(path ? path : "");
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string verb, function;
            words >> verb >> function >> std::ws;
            std::getline(words, m_rests[verb + " " + function]);
        }
    }
    /** It is none of the next call's. */
    static void remove() { unlink(getenv("TEST_ENGINE_SCRIPT")); }
    /** The rest of the last line "verb function ...", null if there is none. */
    const std::string* rest(const std::string& verb, const std::string& function) const {
        const auto found = m_rests.find(verb + " " + function);
        return found == m_rests.end() ? nullptr : &found->second;
    }

 private:
    std::map<std::string, std::string> m_rests;
};

void make_readable() {
    const uint64_t one = 1;
    if (g_state.evfd >= 0 && write(g_state.evfd, &one, sizeof one) < 0) abort();
}

void log_call(const std::string& name, const std::string& args) {
    const char* path = getenv("TEST_ENGINE_LOG");
    if (!path) return;
    const int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return;
    const std::string line = args.empty() ? name + "\n" : name + " " + args + "\n";
    [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
    close(fd);
}

volatile bool g_deeper = true;

void overflow_stack() {
    volatile char frame[4096];
    frame[0] = 1;
    if (g_deeper) overflow_stack();
    frame[1] = frame[0];  // no tail call
}

/** Ends the process by the C library's own check, which finds the end of the heap overwritten. */
void corrupt_heap() {
    char* volatile last = nullptr;
    for (int i = 0; i < 20; ++i)
        last = static_cast<char*>(malloc(100000));
    *reinterpret_cast<volatile size_t*>(last + malloc_usable_size(last)) = SIZE_MAX;
    while (true)
        last = static_cast<char*>(malloc(100000));
}

/** The same while the heap's lock is held: the C library takes no locks until there was a thread. */
void crash_in_locked_heap() {
    pthread_t thread;
    pthread_create(
        &thread, nullptr, [](void* nothing) { return nothing; }, nullptr);
    pthread_join(thread, nullptr);
    corrupt_heap();
}

/** Memory that is used and never given back, and descriptors that nobody closes. */
void leak(int descriptors) {
    constexpr size_t SIZE = 8 << 20;
    void* memory = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) std::memset(memory, 1, SIZE);
    for (int i = 0; i < descriptors && eventfd(0, EFD_CLOEXEC) >= 0; ++i) {
    }
}

void flood() {
    const std::string line = std::string(HOSTILE) + std::string(100, '.') + "\n";
    for (int i = 0; i < 8000; ++i)
        if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

void close_from(int first, int last) {
    for (int fd = first; fd <= last; ++fd)
        close(fd);
}

struct Crash {
    const char* kind;
    void (*run)();  ///< may return: then the call goes on
};
constexpr Crash CRASHES[] = {
    {"segv", [] { raise(SIGSEGV); }},
    {"ill", [] { raise(SIGILL); }},
    {"fpe", [] { raise(SIGFPE); }},
    {"bus", [] { raise(SIGBUS); }},
    {"sys", [] { raise(SIGSYS); }},
    {"null",
     [] {
         volatile int* volatile nowhere = nullptr;
         *nowhere = 1;
     }},
    {"overflow", overflow_stack},
    {"heap", corrupt_heap},
    {"inmalloc", crash_in_locked_heap},
    {"throw_int", [] { throw 1; }},
    {"abort", abort},
    {"leak", [] { leak(50); }},
    {"greed", [] { leak(INT_MAX); }},
    {"flood", flood},
    {"close", [] { close_from(3, 1023); }},
    {"close_std", [] { close_from(0, 2); }},
    {"hang",
     [] {
         while (true)
             pause();
     }},
};

void crash(const std::string& how) {
    const std::vector<std::string> words = split_words(how);
    const std::string kind = words.empty() ? "abort" : words[0];
    const int number = words.size() > 1 ? atoi(words[1].c_str()) : 1;
    if (kind == "exit") _exit(number);
    if (kind == "leave") exit(number);
    if (kind == "throw")
        throw std::runtime_error(words.size() > 1 ? how.substr(kind.size() + 1) : "scripted exception");
    const auto* known =
        std::find_if(std::begin(CRASHES), std::end(CRASHES), [&](const Crash& c) { return kind == c.kind; });
    known == std::end(CRASHES) ? abort() : known->run();
}

Json::Value nonsense_value() {
    Json::Value deep(HOSTILE);
    for (int i = 0; i < 300; ++i) {
        Json::Value outer(Json::arrayValue);
        outer.append(std::move(deep));
        deep = std::move(outer);
    }
    Json::Value out;
    out["deep"] = deep;
    out["nan"] = std::numeric_limits<double>::quiet_NaN();
    out["infinity"] = std::numeric_limits<double>::infinity();
    out[HOSTILE] = HOSTILE;
    return out;
}

std::vector<std::string> nonsense_list() {
    return {std::string(100000, 'x'), HOSTILE, "", std::string("a\0b", 3), "line\nbreak"};
}

std::string nonsense_text() {
    return std::string(100000, '\xff') + std::string("\0\n", 2) + HOSTILE;
}

void make_nonsense_of(std::vector<corvo::api::pkt_>& pkts) {
    for (auto& pkt : pkts) {
        pkt.cls = UINT32_MAX;
        pkt.protocol = HOSTILE;
        pkt.error = static_cast<corvo::api::pkt_error_e>(999);
        pkt.cat.assign(100, {65535, 65535});
        pkt.tph = pkt.attr = nonsense_list();
        pkt.data = nullptr;
        pkt.len = 65535;
    }
    pkts.resize(pkts.size() + 3);
}

/** The start of every function: logs the call and does what the script says about it. */
class Call {
 public:
    Call(const std::string& name, std::string& err, const std::string& args = "") {
        log_call(name, args);
        if (m_script.rest("once", name)) Script::remove();
        m_nonsense = m_script.rest("nonsense", name) != nullptr;
        if (m_script.rest("signal", name)) make_readable();
        if (const auto* text = m_script.rest("stderr", name)) dprintf(STDERR_FILENO, "%s\n", text->c_str());
        if (const auto* ms = m_script.rest("delay", name)) usleep(1000 * std::stoi(*ms));
        if (const auto* how = m_script.rest("crash", name)) crash(*how);
        if (const auto* text = m_script.rest("fail", name)) err = *text;
        m_failed = !err.empty();
    }

    bool failed() const { return m_failed; }
    /** Whether what it gives back is to be nonsense. */
    bool nonsense() const { return m_nonsense; }
    const Script& script() const { return m_script; }
    const std::string* value(const std::string& name) const { return m_script.rest("return", name); }

 private:
    Script m_script;
    bool m_failed = false;
    bool m_nonsense = false;
};

/** Fills `out` with the scripted JSON text, or with the default one. */
void answer_json(const Call& call, const std::string& name, const char* otherwise, Json::Value& out) {
    if (call.failed()) return;
    const auto* text = call.value(name);
    Json::Reader().parse(text ? *text : otherwise, out);
    if (call.nonsense()) out = nonsense_value();
}

std::string to_text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

template <typename... Args>
std::string text(const Args&... args) {
    std::ostringstream out;
    (out << ... << args);
    return out.str();
}

void classify(corvo::api::pkt_& pkt, const std::vector<std::string>& classes, bool extended) {
    const size_t pair = 2 * (g_state.packets++ % (classes.size() / 2));
    pkt.cls = std::stoul(classes[pair]);
    pkt.protocol = classes[pair + 1];
    if (!extended) return;
    pkt.aging_sec = 30;
    pkt.visibility = 2;
    pkt.error = corvo::api::PKT_NON_FFRAG;
    pkt.cat = {{1, 2}, {3, 4}};
    pkt.attr = {"scripted"};
    pkt.tph = {"eth", pkt.protocol};
}

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string& err) {
    const Call call(
        "init", err,
        text("shm_type=", config.shm_type, " shm_dev=", config.shm_dev, " shm_addr=", config.shm_addr,
             " shm_size=", config.shm_size, " cp_addr=", config.cp_addr, " cmds=", config.cmds ? 1 : 0));
    if (call.failed()) return;
    g_state = State();
    g_state.evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void corvo_api_cp_deinit(std::string& err) {
    const Call call("deinit", err);
    if (g_state.evfd >= 0) close(g_state.evfd);
    g_state = State();
}

void corvo_api_cp_activate(const corvo::api::ActivateConfig& config, std::string& err) {
    const Call call("activate", err,
                    text("max_flows=", config.max_flows, " dp_workers=", config.dp_workers,
                         " writable_shm=", config.writable_shm));
}

void corvo_api_cp_deactivate(std::string& err) {
    const Call call("deactivate", err);
}

int corvo_api_cp_tick(std::string& err) {
    uint64_t count = 0;
    if (g_state.evfd >= 0) [[maybe_unused]]
        const ssize_t n = read(g_state.evfd, &count, sizeof count);
    const Call call("tick", err);
    const auto* delay = call.value("tick");
    if (call.nonsense()) return INT_MIN;
    return delay ? std::stoi(*delay) : 1000;
}

void corvo_api_cp_get_evfd(int& fd, std::string& err) {
    const Call call("get_evfd", err, text(fd));
    const auto* scripted = call.value("get_evfd");
    if (!call.failed()) fd = scripted ? std::stoi(*scripted) : g_state.evfd;
    // A file is always readable, and epoll takes none.
    if (call.nonsense()) fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
}

void corvo_api_cp_push_pkts(const std::string& dpaddr, std::vector<corvo::api::pkt_>& pkts, std::string& err,
                            bool extended) {
    size_t bytes = 0;
    for (const auto& pkt : pkts)
        bytes += pkt.len;
    const Call call("push_pkts", err,
                    text("dpaddr=", dpaddr, " pkts=", pkts.size(), " bytes=", bytes,
                         " ns_id=", pkts.empty() ? 0 : pkts[0].ns_id, " extended=", extended));
    if (call.failed()) return;
    const auto* scripted = call.script().rest("class", "push_pkts");
    const std::vector<std::string> classes = split_words(scripted ? *scripted : "1 bench");
    for (auto& pkt : pkts)
        classify(pkt, classes, extended);
    if (call.nonsense()) make_nonsense_of(pkts);
}

void corvo_api_cp_coffee(const std::string& dpaddr, const std::string& func,
                         const std::vector<uint32_t>& args, std::string& result, std::string& err) {
    std::string numbers;
    for (const uint32_t arg : args)
        numbers += (numbers.empty() ? "" : ",") + std::to_string(arg);
    const Call call("coffee", err, text("dpaddr=", dpaddr, " func=", func, " args=", numbers));
    const auto* scripted = call.value("coffee");
    if (!call.failed()) result = scripted ? *scripted : "done " + func;
    if (call.nonsense()) result = nonsense_text();
}

void corvo_api_cp_get_version(Json::Value& out, std::string& err) {
    const Call call("get_version", err);
    answer_json(call, "get_version", R"({"version":"scripted"})", out);
}

void corvo_api_cp_get_dps(std::vector<std::string>& out, std::string& err) {
    const Call call("get_dps", err);
    if (!call.failed()) out = {"dp0"};
    if (call.nonsense()) out = nonsense_list();
}

void corvo_api_cp_intf_attach(const std::string& ifname, std::string& err) {
    const Call call("intf_attach", err, ifname);
    if (!call.failed()) g_state.interfaces.push_back(ifname);
    if (call.nonsense()) g_state.interfaces = nonsense_list();
}

void corvo_api_cp_intf_detach(const std::string& ifname, std::string& err) {
    const Call call("intf_detach", err, ifname);
    auto& names = g_state.interfaces;
    if (!call.failed() && !call.nonsense())
        names.erase(std::remove(names.begin(), names.end(), ifname), names.end());
}

void corvo_api_cp_intf_get(std::vector<std::string>& out, std::string& err) {
    const Call call("intf_get", err);
    const auto* scripted = call.script().rest("list", "intf");
    if (!call.failed()) out = scripted ? split_words(*scripted) : g_state.interfaces;
    if (call.nonsense()) out = nonsense_list();
}

void corvo_api_cp_collector_enable(const std::string& component, std::string& err) {
    const Call call("collector_enable", err, component);
}

void corvo_api_cp_collector_disable(const std::string& component, std::string& err) {
    const Call call("collector_disable", err, component);
}

void corvo_api_cp_collector_set_interval(const std::string& component, uint64_t interval, std::string& err) {
    const Call call("collector_set_interval", err, text(component, " ", interval));
}

void corvo_api_cp_get_collectors(Json::Value& out, std::string& err) {
    const Call call("get_collectors", err);
    answer_json(call, "get_collectors", R"({"collectables":["flows","memory"],"exporter":{"type":"none"}})",
                out);
}

void corvo_api_cp_collector_get_sample(const std::string& component, Json::Value& out, std::string& err) {
    const Call call("collector_get_sample", err, component);
    answer_json(call, "collector_get_sample", R"({"flows":3})", out);
}

void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig& config, std::string& err) {
    const Call call(
        "collect_set_exporter", err,
        text("type=", config.type, " server=", config.server, " port=", config.port, " path=", config.path));
}

void corvo_api_cp_health_get(Json::Value& out, bool verbose, std::string& err) {
    const Call call("health_get", err, text("verbose=", verbose));
    answer_json(call, "health_get", R"({"healthy":true})", out);
}

void corvo_api_cp_health_conf_get(Json::Value& out, std::string& err) {
    const Call call("health_conf_get", err);
    answer_json(call, "health_conf_get", R"({"period":10})", out);
}

void corvo_api_cp_health_conf_set(const Json::Value& conf, std::string& err) {
    const Call call("health_conf_set", err, to_text(conf));
}
