#include "tools/engine-check/library.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>

namespace engine_check {

namespace {

constexpr const char* SHARED_RUNTIMES[] = {"libstdc++.so.", "libc++.so.", "libjsoncpp.so."};

std::string last_error() {
    const char* reason = dlerror();
    return reason ? reason : "no reason given";
}

/** The run-time libraries whose objects cross the boundary, as named by this object. */
std::vector<std::string> runtimes_of(void* handle) {
    std::vector<std::string> names;
    link_map* map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, static_cast<void*>(&map)) != 0 || !map) return names;
    const char* texts = nullptr;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry)
        if (entry->d_tag == DT_STRTAB) texts = reinterpret_cast<const char*>(entry->d_un.d_ptr);
    for (const ElfW(Dyn)* entry = map->l_ld; texts && entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag != DT_NEEDED) continue;
        const std::string name = texts + entry->d_un.d_val;
        for (const char* shared : SHARED_RUNTIMES)
            if (name.rfind(shared, 0) == 0) names.push_back(name);
    }
    return names;
}

}  // namespace

std::string Library::open(const std::string& path) {
    m_handle = dlopen(path.c_str(), RTLD_NOW);
    return m_handle ? "" : last_error();
}

std::vector<std::string> Library::resolve() {
    std::vector<std::string> missing;
    for (const corvo::server::EngineSymbol& symbol : corvo::server::engine_symbols()) {
        void* address = dlsym(m_handle, symbol.name);
        if (address)
            symbol.store(m_api, address);
        else
            missing.emplace_back(symbol.name);
    }
    return missing;
}

std::vector<std::string> Library::foreign_runtimes() const {
    void* self = dlopen(nullptr, RTLD_NOW);
    const std::vector<std::string> ours = runtimes_of(self);
    dlclose(self);
    std::vector<std::string> foreign;
    for (const std::string& name : runtimes_of(m_handle))
        if (std::find(ours.begin(), ours.end(), name) == ours.end()) foreign.push_back(name);
    return foreign;
}

std::string Library::close() {
    if (!m_handle) return {};
    const int rc = dlclose(m_handle);
    m_handle = nullptr;
    m_api = {};
    return rc == 0 ? "" : last_error();
}

}  // namespace engine_check
