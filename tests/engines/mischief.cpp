#include "engines/mischief.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace mischief {
namespace {

using Json::Value;
using std::string;
using std::vector;

constexpr char HOSTILE[] = "100%s%n%d \x1b[2Jengine \xff\xfe \"quoted\\";

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

}  // namespace

bool told(const string& deed, const string& function) {
    const char* wish = getenv("MISCHIEF");
    if (!wish || deed + ":corvo_api_cp_" + function != wish) return false;
    const char* mark = getenv("MISCHIEF_MARK");
    if (!mark) return true;
    const int fd = open(mark, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    close(fd);
    return true;
}

void misbehave(const string& function, string& err) {
    for (const Deed& deed : DEEDS)
        if (told(deed.name, function)) deed.run(err);
}

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

string nonsense_text() {
    return string(100000, '\xff') + string("\0\n", 2) + HOSTILE;
}

void make_nonsense_of(vector<corvo::api::pkt_>& pkts) {
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

}  // namespace mischief
