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

/** Splits at blanks. */
std::vector<std::string> split_words(const std::string& text) {
    std::istringstream words(text);
    std::vector<std::string> out;
    for (std::string word; words >> word;)
        out.push_back(word);
    return out;
}

void make_readable() {
    const uint64_t one = 1;
    if (g_state.evfd >= 0 && write(g_state.evfd, &one, sizeof one) < 0) abort();
}

std::string to_text(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

volatile bool g_deeper = true;
volatile int* volatile g_nowhere = nullptr;

void overflow_stack() {
    volatile char frame[4096];
    frame[0] = 1;
    if (g_deeper) overflow_stack();
    frame[1] = frame[0];  // no tail call
}

/** Overwrites the end of the heap, and makes the C library check it, which aborts. */
void corrupt_heap() {
    char* volatile last = nullptr;
    for (int i = 0; i < 20; ++i)
        last = static_cast<char*>(malloc(100000));
    *reinterpret_cast<volatile size_t*>(last + malloc_usable_size(last)) = SIZE_MAX;
    while (true)
        last = static_cast<char*>(malloc(100000));
}

/** The same with the heap locked. The C library takes no locks before there was a second thread. */
void crash_in_locked_heap() {
    pthread_t thread;
    pthread_create(
        &thread, nullptr, [](void* nothing) { return nothing; }, nullptr);
    pthread_join(thread, nullptr);
    corrupt_heap();
}

/** Leaks memory that is really used, and descriptors. */
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
    void (*run)(const std::string& argument);  ///< may return: then the call goes on
};
constexpr Crash CRASHES[] = {
    {"abort", [](auto&) { abort(); }},
    {"raise", [](auto& signum) { raise(std::stoi(signum)); }},
    {"null", [](auto&) { *g_nowhere = 1; }},
    {"overflow", [](auto&) { overflow_stack(); }},
    {"heap", [](auto&) { corrupt_heap(); }},
    {"inmalloc", [](auto&) { crash_in_locked_heap(); }},
    {"throw", [](auto& text) { throw std::runtime_error(text.empty() ? "scripted exception" : text); }},
    {"throw_int", [](auto&) { throw 1; }},
    {"exit", [](auto& status) { _exit(std::stoi(status)); }},
    {"leave", [](auto& status) { exit(std::stoi(status)); }},
    {"leak", [](auto&) { leak(50); }},
    {"greed", [](auto&) { leak(INT_MAX); }},
    {"flood", [](auto&) { flood(); }},
    {"close", [](auto&) { close_from(3, 1023); }},
    {"close_std", [](auto&) { close_from(0, 2); }},
    {"hang",
     [](auto&) {
         while (true)
             pause();
     }},
};

void crash(const std::string& how) {
    const size_t end = std::min(how.size(), how.find(' '));
    for (const Crash& crash : CRASHES)
        if (how.substr(0, end) == crash.kind) return crash.run(how.substr(std::min(how.size(), end + 1)));
    abort();
}

void spoil(Json::Value& out) {
    Json::Value deep(HOSTILE);
    for (int i = 0; i < 300; ++i) {
        Json::Value outer(Json::arrayValue);
        outer.append(std::move(deep));
        deep = std::move(outer);
    }
    out = Json::Value();
    out["deep"] = deep;
    out["nan"] = std::numeric_limits<double>::quiet_NaN();
    out["infinity"] = std::numeric_limits<double>::infinity();
    out[HOSTILE] = HOSTILE;
}

void spoil(std::vector<std::string>& out) {
    out = {std::string(100000, 'x'), HOSTILE, "", std::string("a\0b", 3), "line\nbreak"};
}

void spoil(std::string& out) {
    out = std::string(100000, '\xff') + std::string("\0\n", 2) + HOSTILE;
}

/** A file is always readable, and epoll takes none. */
void spoil(int& fd) {
    fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
}

void spoil(std::vector<corvo::api::pkt_>& pkts) {
    for (auto& pkt : pkts) {
        pkt.cls = UINT32_MAX;
        pkt.protocol = HOSTILE;
        pkt.error = static_cast<corvo::api::pkt_error_e>(999);
        pkt.cat.assign(100, {65535, 65535});
        spoil(pkt.tph);
        spoil(pkt.attr);
        pkt.data = nullptr;
        pkt.len = 65535;
    }
    pkts.resize(pkts.size() + 3);
}

/** The start of every function: logs the call and does what the script says about it. */
class Call {
 public:
    template <class... Args>
    Call(std::string name, std::string& err, const Args&... args) : m_name(std::move(name)) {
        read_script();
        if (const char* path = getenv("TEST_ENGINE_LOG"))
            ((std::ofstream(path, std::ios::app) << m_name << (sizeof...(args) ? " " : "")) << ... << args)
                << '\n';
        if (line("once")) unlink(getenv("TEST_ENGINE_SCRIPT"));  // the next call must not see it
        if (line("signal")) make_readable();
        if (const auto* text = line("stderr")) dprintf(STDERR_FILENO, "%s\n", text->c_str());
        if (const auto* ms = line("delay")) usleep(1000 * std::stoi(*ms));
        if (const auto* how = line("crash")) crash(*how);
        if (const auto* text = line("fail")) err = *text;
        m_failed = !err.empty();
    }

    /** The rest of the last line of the script that begins with these two words; null if there is none. */
    const std::string* line(const std::string& verb, std::string function = "") const {
        const auto found = m_lines.find(verb + " " + (function.empty() ? m_name : function));
        return found == m_lines.end() ? nullptr : &found->second;
    }
    bool failed() const { return m_failed; }
    bool nonsense() const { return line("nonsense"); }
    /** What the script says after the verb, or the default. */
    std::string scripted(const std::string& verb, const std::string& otherwise) const {
        const auto* text = line(verb);
        return text ? *text : otherwise;
    }
    /** Sets what the function returns, unless the call fails. */
    template <class Value>
    void give(Value& out, const Value& usual) const {
        if (m_failed) return;
        out = usual;
        if (nonsense()) spoil(out);
    }
    void give(Json::Value& out, const char* otherwise) const {
        Json::Value usual;
        Json::Reader().parse(scripted("return", otherwise), usual);
        give(out, usual);
    }

 private:
    /** As it is at this moment; without a readable file it is empty. */
    void read_script() {
        const char* path = getenv("TEST_ENGINE_SCRIPT");
        std::ifstream file(path ? path : "");
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string verb, function;
            words >> verb >> function >> std::ws;
            std::getline(words, m_lines[verb + " " + function]);
        }
    }
    std::string m_name;
    std::map<std::string, std::string> m_lines;
    bool m_failed = false;
};

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
    const Call call("init", err, "shm_type=", config.shm_type, " shm_dev=", config.shm_dev,
                    " shm_addr=", config.shm_addr, " shm_size=", config.shm_size, " cp_addr=", config.cp_addr,
                    " cmds=", config.cmds ? 1 : 0);
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
    Call("activate", err, "max_flows=", config.max_flows, " dp_workers=", config.dp_workers,
         " writable_shm=", config.writable_shm);
}

void corvo_api_cp_deactivate(std::string& err) {
    Call("deactivate", err);
}

int corvo_api_cp_tick(std::string& err) {
    uint64_t count = 0;
    if (g_state.evfd >= 0) [[maybe_unused]]
        const ssize_t n = read(g_state.evfd, &count, sizeof count);
    const Call call("tick", err);
    return call.nonsense() ? INT_MIN : std::stoi(call.scripted("return", "1000"));
}

void corvo_api_cp_get_evfd(int& fd, std::string& err) {
    const Call call("get_evfd", err, fd);
    call.give(fd, std::stoi(call.scripted("return", std::to_string(g_state.evfd))));
}

void corvo_api_cp_push_pkts(const std::string& dpaddr, std::vector<corvo::api::pkt_>& pkts, std::string& err,
                            bool extended) {
    size_t bytes = 0;
    for (const auto& pkt : pkts)
        bytes += pkt.len;
    const Call call("push_pkts", err, "dpaddr=", dpaddr, " pkts=", pkts.size(), " bytes=", bytes,
                    " ns_id=", pkts.empty() ? 0 : pkts[0].ns_id, " extended=", extended);
    if (call.failed()) return;
    const std::vector<std::string> classes = split_words(call.scripted("class", "1 bench"));
    for (auto& pkt : pkts)
        classify(pkt, classes, extended);
    if (call.nonsense()) spoil(pkts);
}

void corvo_api_cp_coffee(const std::string& dpaddr, const std::string& func,
                         const std::vector<uint32_t>& args, std::string& result, std::string& err) {
    std::string numbers;
    for (const uint32_t arg : args)
        numbers += (numbers.empty() ? "" : ",") + std::to_string(arg);
    const Call call("coffee", err, "dpaddr=", dpaddr, " func=", func, " args=", numbers);
    call.give(result, call.scripted("return", "done " + func));
}

void corvo_api_cp_get_version(Json::Value& out, std::string& err) {
    Call("get_version", err).give(out, R"({"version":"scripted"})");
}

void corvo_api_cp_get_dps(std::vector<std::string>& out, std::string& err) {
    Call("get_dps", err).give(out, {"dp0"});
}

void corvo_api_cp_intf_attach(const std::string& ifname, std::string& err) {
    const Call call("intf_attach", err, ifname);
    auto names = g_state.interfaces;
    names.push_back(ifname);
    call.give(g_state.interfaces, names);
}

void corvo_api_cp_intf_detach(const std::string& ifname, std::string& err) {
    const Call call("intf_detach", err, ifname);
    if (!call.failed() && !call.nonsense()) std::erase(g_state.interfaces, ifname);
}

void corvo_api_cp_intf_get(std::vector<std::string>& out, std::string& err) {
    const Call call("intf_get", err);
    const auto* listed = call.line("list", "intf");
    call.give(out, listed ? split_words(*listed) : g_state.interfaces);
}

void corvo_api_cp_collector_enable(const std::string& component, std::string& err) {
    Call("collector_enable", err, component);
}

void corvo_api_cp_collector_disable(const std::string& component, std::string& err) {
    Call("collector_disable", err, component);
}

void corvo_api_cp_collector_set_interval(const std::string& component, uint64_t interval, std::string& err) {
    Call("collector_set_interval", err, component, " ", interval);
}

void corvo_api_cp_get_collectors(Json::Value& out, std::string& err) {
    Call("get_collectors", err)
        .give(out, R"({"collectables":["flows","memory"],"exporter":{"type":"none"}})");
}

void corvo_api_cp_collector_get_sample(const std::string& component, Json::Value& out, std::string& err) {
    Call("collector_get_sample", err, component).give(out, R"({"flows":3})");
}

void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig& config, std::string& err) {
    Call("collect_set_exporter", err, "type=", config.type, " server=", config.server, " port=", config.port,
         " path=", config.path);
}

void corvo_api_cp_health_get(Json::Value& out, bool verbose, std::string& err) {
    Call("health_get", err, "verbose=", verbose).give(out, R"({"healthy":true})");
}

void corvo_api_cp_health_conf_get(Json::Value& out, std::string& err) {
    Call("health_conf_get", err).give(out, R"({"period":10})");
}

void corvo_api_cp_health_conf_set(const Json::Value& conf, std::string& err) {
    Call("health_conf_set", err, to_text(conf));
}
