#include "server/corvo_server_loader_us.h"

#include <dlfcn.h>

#include "infra/corvo_logger.h"
#include "utils/exception.h"

namespace corvo::server {

namespace {
const std::string COMP = "server";
}

void EngineUS::load_engine_int(const std::string& path, bool /*mt*/) {
    if (m_handle) return;
    CORVO_LOG(DEBUG, COMP, "Loading Corvo CP dynamic library");
    const std::string file = path + "/libcvcp_u.so";
    m_handle = dlopen(file.c_str(), RTLD_NOW);
    if (!m_handle) {
        const char* reason = dlerror();
        throw Exception(std::string("failed loading Corvo CP dynamic library: ") +
                        (reason ? reason : "no reason given"));
    }
}

void EngineUS::unload_engine_int() {
    if (!m_handle) return;
    CORVO_LOG(DEBUG, COMP, "Unloading Corvo CP library");
    dlclose(m_handle);
    m_handle = nullptr;
}

void EngineUS::get_mt_info_int(mt_info& out) {
    out["ft"].clear();
    out["dp"].clear();
}

}  // namespace corvo::server
