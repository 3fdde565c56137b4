#include "server/corvo_server_loader_km.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "infra/corvo_logger.h"
#include "utils/blocked_signals.h"
#include "utils/exception.h"

namespace corvo::server {

namespace {

const std::string COMP = "server";

const std::string MODULE = "cvdp";
const std::string MODULE_FILE = "../modules/cvdp.ko";
const std::string MODULES_LIST = "/proc/modules";

constexpr LibraryTexts LIBRARY = {
    .file = "libcvcp_k.so",
    .loading = "Loading VELD CP dynamic library",
    .unloading = "Unloading VELD CP library",
    .failure = "failed loading VELD CP dynamic library: ",
};

/**
 * Sent by the supervisor to ask what holds the server up. It would make a slow load or removal of a module
 * fail with EINTR, so it is blocked until the call is over.
 */
constexpr int HOG_SIGNAL[] = {SIGUSR1};

struct MtSource {
    const char* key;
    const char* path;
};
constexpr MtSource MT_SOURCES[] = {
    {"ft", "/proc/brume_lm_ft_mt"},
    {"dp", "/proc/brume_lm_dp_mt"},
};

std::string strip(const std::string& text) {
    static constexpr const char* WHITE = "\t\n\v\f\r ";
    const size_t first = text.find_first_not_of(WHITE);
    if (first == std::string::npos) return "";
    return text.substr(first, text.find_last_not_of(WHITE) - first + 1);
}

}  // namespace

const char* moderror(int err) {
    switch (err) {
        case ENOENT:
            return "Unknown symbol in module";
        case ESRCH:
            return "Module has wrong symbol version";
        case ENOEXEC:
            return "Invalid module format";
        case EINVAL:
            return "Invalid parameters";
        default:
            return std::strerror(err);
    }
}

std::vector<std::string> split(const std::string& text, char delim) {
    std::vector<std::string> pieces;
    std::istringstream stream(text);
    for (std::string piece; std::getline(stream, piece, delim);) {
        piece = strip(piece);
        if (!piece.empty()) pieces.push_back(std::move(piece));
    }
    return pieces;
}

EngineKM::EngineKM(Scheduler& sched, std::unique_ptr<KernelModules> kernel, bool slave_mode)
    : Engine("kernel", sched), m_kernel(std::move(kernel)), m_slave_mode(slave_mode) {}

void EngineKM::load_engine_int(const std::string& path, bool mt) {
    load_kms(path, mt);
    try {
        load_so(path);
    } catch (const Exception&) {
        try {
            unload_engine_int();  // removes the module loaded above
        } catch (const Exception& e) {
            CORVO_LOG(WARN, COMP, "unload after a failed load: %s, ignoring", e.what());
        }
        throw;
    }
}

void EngineKM::load_so(const std::string& path) {
    open_library(path, LIBRARY);
}

void EngineKM::load_kms(const std::string& /*path*/, bool mt) {
    const bool loaded = is_km_loaded(MODULE, nullptr);
    if (m_slave_mode) {
        if (!loaded) throw Exception("CVDP module is NOT loaded");
        return;
    }
    if (loaded) throw Exception("CVDP module is already loaded");

    CORVO_LOG(DEBUG, COMP, "Loading VELD DP kernel module");
    const std::string failure = "loading '" + MODULE_FILE + "' failed: ";
    std::vector<char> image;
    if (const int err = m_kernel->read_image(MODULE_FILE, image))
        throw Exception(failure + std::strerror(err));
    const BlockedSignals held(HOG_SIGNAL);
    if (const int err = m_kernel->init_module(image, mt ? "mt=1" : ""))
        throw Exception(failure + moderror(err));
}

bool EngineKM::is_km_loaded(const std::string& name, unsigned int* users) {
    std::string modules;
    if (!m_kernel->read_proc(MODULES_LIST, modules)) throw Exception("unable to open " + MODULES_LIST);
    std::istringstream lines(modules);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word != name) continue;
        unsigned long size = 0;
        if (users) words >> size >> *users;
        return true;
    }
    return false;
}

void EngineKM::unload_engine_int() {
    close_library(LIBRARY);
    if (!m_slave_mode) remove_module();
}

void EngineKM::remove_module() {
    if (!is_km_loaded(MODULE, nullptr)) return;
    CORVO_LOG(DEBUG, COMP, "Unloading VELD DP kernel module");
    unsigned int users = 0;
    if (is_km_loaded(MODULE, &users) && users != 0)
        throw Exception("unable to unload '" + MODULE + "' - module has dependencies");
    const BlockedSignals held(HOG_SIGNAL);
    if (const int err = m_kernel->delete_module(MODULE))
        throw Exception("unloading '" + MODULE + "' failed: " + moderror(err));
}

void EngineKM::get_mt_info_int(mt_info& out) {
    for (const MtSource& source : MT_SOURCES) {
        std::string text;
        if (m_kernel->read_proc(source.path, text))
            parse_mt_info(text, out[source.key]);
        else
            out[source.key].clear();
    }
}

void EngineKM::parse_mt_info(const std::string& text, std::unordered_map<std::string, uint64_t>& out) {
    for (const std::string& line : split(text, '\n')) {
        const std::vector<std::string> words = split(line, ' ');
        if (words.size() < 2) continue;
        const int64_t value = std::strtol(words[1].c_str(), nullptr, 10);
        out[words[0]] = static_cast<uint64_t>(value);
    }
}

}  // namespace corvo::server
