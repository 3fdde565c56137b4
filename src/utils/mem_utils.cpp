#include "utils/mem_utils.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include "utils/unique_fd.h"
#include "utils/unique_file.h"

namespace corvo {
namespace {

constexpr size_t STATM_LINE_LIMIT = 1024;
constexpr size_t STATUS_LINE_LIMIT = 128;
constexpr size_t UNIT_LEN = 3;  // "kB\n"

/** Parses a line such as "7f01c000-7f01d000 r-xp 00002000 fe:01 5242 /lib/x.so". */
bool parse_map(const std::string& line, MemUtils::MemMap& map) {
    std::istringstream in(line);
    uintptr_t start = 0;
    uintptr_t end = 0;
    char dash = 0;
    if (!(in >> std::hex >> start >> dash >> end)) return false;

    std::string permissions;
    std::string offset;
    std::string device;
    in >> permissions >> offset >> device >> std::dec >> map.inode;
    map.start = reinterpret_cast<void*>(start);
    map.end = reinterpret_cast<void*>(end);
    map.size = static_cast<uint32_t>(std::min<uintptr_t>(end - start, std::numeric_limits<uint32_t>::max()));
    return true;
}

}  // namespace

MemUtils::ProcessMem MemUtils::get_process_mem() {
    // Avoids a stream, as every status reply asks for this.
    UniqueFd file(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    char line[STATM_LINE_LIMIT] = "";
    if (!file || read(file.get(), line, sizeof line - 1) <= 0) return {};
    static const long long page_size = sysconf(_SC_PAGESIZE);
    char* rest = nullptr;
    const long long virt = std::strtoll(line, &rest, 10);
    return {virt * page_size, std::strtoll(rest, nullptr, 10) * page_size};
}

long long MemUtils::get_process_mem_value(MemoryValue which) {
    const ProcessMem mem = get_process_mem();
    return which == VIRTUAL_MEMORY ? mem.virt : mem.resident;
}

long long MemUtils::get_memory_value(const char* key) {
    UniqueFile file(std::fopen("/proc/self/status", "re"));
    if (!file) return -1;
    std::array<char, STATUS_LINE_LIMIT> line{};
    while (std::fgets(line.data(), line.size(), file.get()))
        if (std::strncmp(line.data(), key, std::strlen(key)) == 0) return get_numeric_value(line.data());
    return -1;
}

void MemUtils::get_maps(std::vector<MemMap>& maps) {
    maps.clear();
    std::ifstream file("/proc/self/maps");
    for (std::string line; std::getline(file, line);) {
        MemMap map{};
        if (parse_map(line, map)) maps.push_back(map);
    }
}

bool MemUtils::lookup(const void* start, const void* end, MemMap& out) {
    std::vector<MemMap> maps;
    get_maps(maps);
    auto found = std::find_if(maps.begin(), maps.end(),
                              [&](const MemMap& m) { return m.end >= start && m.start <= end; });
    if (found == maps.end()) return false;
    out = *found;
    return true;
}

void MemUtils::get_process_status(std::unordered_map<std::string, std::string>& status) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        size_t colon = line.find(':');
        size_t value = colon == std::string::npos ? colon : line.find_first_not_of(" \n\r\t", colon + 1);
        status[line.substr(0, colon)] = value == std::string::npos ? "" : line.substr(value);
    }
}

char* MemUtils::get_first_numeric_index(const char* text) {
    return const_cast<char*>(std::strpbrk(text, "0123456789"));
}

long MemUtils::get_numeric_value(char* line) {
    size_t len = std::strlen(line);
    const char* digit = get_first_numeric_index(line);
    if (len < UNIT_LEN || !digit) return 0;
    line[len - UNIT_LEN] = '\0';
    return std::strtol(digit, nullptr, 10);
}

long long MemUtils::get_word_with_index_from_line(char* line, int index) {
    if (!line) return -1;
    char* rest = nullptr;
    char* word = strtok_r(line, " ", &rest);
    for (int i = 1; word && i < index; ++i)
        word = strtok_r(nullptr, " ", &rest);
    return word && index > 0 ? std::strtol(word, nullptr, 10) : 0;
}

}  // namespace corvo
