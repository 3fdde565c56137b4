#include "server/corvo_server_loader_us.h"

namespace corvo::server {

namespace {
constexpr LibraryTexts LIBRARY = {
    .file = "libcvcp_u.so",
    .loading = "Loading Corvo CP dynamic library",
    .unloading = "Unloading Corvo CP library",
    .failure = "failed loading Corvo CP dynamic library: ",
};
}

void EngineUS::load_engine_int(const std::string& path, bool /*mt*/) {
    open_library(path, LIBRARY);
}

void EngineUS::unload_engine_int() {
    close_library(LIBRARY);
}

void EngineUS::get_mt_info_int(mt_info& out) {
    out["ft"].clear();
    out["dp"].clear();
}

}  // namespace corvo::server
