// An engine that works until it is told to misbehave, by MISCHIEF=DEED:FUNCTION. See README.md.

#include <brumecpd/engine_api.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

using Json::Value;
using std::string;
using std::vector;

constexpr char HOSTILE[] = "100%s%n%d \x1b[2Jengine \xff\xfe \"quoted\\";

struct State {
    int evfd = -1;
    vector<string> interfaces;
};
State g_state;

/** Whether this deed is to be done in this function now; at most once while MISCHIEF_MARK's file is there. */
bool told(const string& deed, const char* function) {
    const char* wish = getenv("MISCHIEF");
    if (!wish || deed + ":corvo_api_cp_" + function != wish) return false;
    const char* mark = getenv("MISCHIEF_MARK");
    if (!mark) return true;
    const int fd = open(mark, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

void hang() {
    while (true)
        pause();
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
    const string line = string(HOSTILE) + string(100, '.') + "\n";
    for (int i = 0; i < 8000; ++i)
        if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

void close_from(int first, int last) {
    for (int fd = first; fd <= last; ++fd)
        close(fd);
}

void crash() {
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

struct Deed {
    const char* name;
    void (*run)(string& err);
};
constexpr Deed DEEDS[] = {
    {"fail", [](string& err) { err = HOSTILE; }},
    {"fail_long", [](string& err) { err.assign(200000, '%'); }},
    {"throw", [](string&) { throw std::runtime_error(HOSTILE); }},
    {"throw_number", [](string&) { throw 5; }},
    {"crash", [](string&) { crash(); }},
    {"abort", [](string&) { abort(); }},
    {"hang", [](string&) { hang(); }},
    {"exit", [](string&) { exit(3); }},
    {"exit_0", [](string&) { exit(0); }},
    {"leak", [](string&) { leak(50); }},
    {"greed", [](string&) { leak(INT_MAX); }},
    {"flood", [](string&) { flood(); }},
    {"close", [](string&) { close_from(3, 1023); }},
    {"close_std", [](string&) { close_from(0, 2); }},
};

/** Does what every function can be told to do. */
void misbehave(const char* function, string& err) {
    for (const Deed& deed : DEEDS)
        if (told(deed.name, function)) deed.run(err);
}

bool nonsense(const char* function) {
    return told("nonsense", function);
}

/** A value that no reader of JSON would take back. */
Value nonsense_value() {
    Value deep(HOSTILE);
    for (int i = 0; i < 300; ++i) {
        Value outer(Json::arrayValue);
        outer.append(std::move(deep));
        deep = std::move(outer);
    }
    Value out;
    out["deep"] = deep;
    out["nan"] = std::numeric_limits<double>::quiet_NaN();
    out["infinity"] = std::numeric_limits<double>::infinity();
    out[HOSTILE] = HOSTILE;
    return out;
}

vector<string> nonsense_list() {
    return {string(100000, 'x'), HOSTILE, "", string("a\0b", 3), "line\nbreak"};
}

void answer(const char* function, Value& out, string& err, const char* name) {
    misbehave(function, err);
    if (nonsense(function))
        out = nonsense_value();
    else
        out[name] = name;
}

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig&, string& err) {
    misbehave("init", err);
    if (err.empty()) g_state.evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void corvo_api_cp_deinit(string& err) {
    misbehave("deinit", err);
    close(g_state.evfd);
    g_state = State();
}

void corvo_api_cp_activate(const corvo::api::ActivateConfig&, string& err) {
    misbehave("activate", err);
}

void corvo_api_cp_deactivate(string& err) {
    misbehave("deactivate", err);
}

int corvo_api_cp_tick(string& err) {
    misbehave("tick", err);
    return nonsense("tick") ? INT_MIN : 1000;
}

void corvo_api_cp_get_evfd(int& fd, string& err) {
    misbehave("get_evfd", err);
    // A file is always readable, and epoll takes none.
    fd = nonsense("get_evfd") ? open("/proc/self/status", O_RDONLY | O_CLOEXEC) : g_state.evfd;
}

void corvo_api_cp_push_pkts(const string&, vector<corvo::api::pkt_>& pkts, string& err, bool) {
    misbehave("push_pkts", err);
    const bool wild = nonsense("push_pkts");
    for (auto& pkt : pkts) {
        pkt.cls = wild ? UINT32_MAX : 1;
        pkt.protocol = wild ? HOSTILE : "mischief";
        if (!wild) continue;
        pkt.error = static_cast<corvo::api::pkt_error_e>(999);
        pkt.cat.assign(100, {65535, 65535});
        pkt.tph = pkt.attr = nonsense_list();
        pkt.data = nullptr;
        pkt.len = 65535;
    }
    if (wild) pkts.resize(pkts.size() + 3);
}

void corvo_api_cp_coffee(const string&, const string&, const vector<uint32_t>&, string& result, string& err) {
    misbehave("coffee", err);
    result = nonsense("coffee") ? string(100000, '\xff') + string("\0\n", 2) + HOSTILE : "brewed";
}

void corvo_api_cp_get_version(Value& out, string& err) {
    answer("get_version", out, err, "version");
}

void corvo_api_cp_get_dps(vector<string>& out, string& err) {
    misbehave("get_dps", err);
    out.emplace_back("dp0");
    if (nonsense("get_dps")) out = nonsense_list();
}

void corvo_api_cp_intf_attach(const string& ifname, string& err) {
    misbehave("intf_attach", err);
    if (err.empty()) g_state.interfaces.push_back(ifname);
    if (nonsense("intf_attach")) g_state.interfaces = nonsense_list();
}

void corvo_api_cp_intf_detach(const string& ifname, string& err) {
    misbehave("intf_detach", err);
    auto& names = g_state.interfaces;
    if (!nonsense("intf_detach")) names.erase(std::remove(names.begin(), names.end(), ifname), names.end());
}

void corvo_api_cp_intf_get(vector<string>& out, string& err) {
    misbehave("intf_get", err);
    out = nonsense("intf_get") ? nonsense_list() : g_state.interfaces;
}

void corvo_api_cp_collector_enable(const string&, string& err) {
    misbehave("collector_enable", err);
}

void corvo_api_cp_collector_disable(const string&, string& err) {
    misbehave("collector_disable", err);
}

void corvo_api_cp_collector_set_interval(const string&, uint64_t, string& err) {
    misbehave("collector_set_interval", err);
}

void corvo_api_cp_get_collectors(Value& out, string& err) {
    answer("get_collectors", out, err, "exporter");
}

void corvo_api_cp_collector_get_sample(const string&, Value& out, string& err) {
    answer("collector_get_sample", out, err, "sample");
}

void corvo_api_cp_collect_set_exporter(const corvo::api::ExporterConfig&, string& err) {
    misbehave("collect_set_exporter", err);
}

void corvo_api_cp_health_get(Value& out, bool, string& err) {
    answer("health_get", out, err, "health");
}

void corvo_api_cp_health_conf_get(Value& out, string& err) {
    answer("health_conf_get", out, err, "conf");
}

void corvo_api_cp_health_conf_set(const Value&, string& err) {
    misbehave("health_conf_set", err);
}
