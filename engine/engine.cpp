#include "engine.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "coffee.h"
#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr const char* ENGINE_VERSION = "1.0";
constexpr int IDLE_TICK_MS = 1000;

/** Above the standard descriptors, which belong to whoever runs the process. */
int open_event_fd() {
    int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd >= 0 && fd <= STDERR_FILENO) {
        int high = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        int saved = errno;
        close(fd);
        errno = saved;
        fd = high;
    }
    if (fd < 0) throw Error(std::string("no event descriptor: ") + std::strerror(errno));
    return fd;
}

}  // namespace

// The flow table is this process's own memory: the configured shared memory isn't needed. Nor are the
// command table and the address.
Engine::Engine(const api::InitConfig&) : m_event_fd(open_event_fd()) {}

Engine::~Engine() {
    close(m_event_fd);
}

// All packets come from the one calling thread, so one worker does the work of any number.
void Engine::activate(const api::ActivateConfig& config) {
    if (m_path) throw Error("the data path is already active");
    m_path = std::make_unique<DataPath>(config.max_flows);
}

void Engine::deactivate() {
    if (!m_path) throw Error("the data path isn't active");
    m_path.reset();
}

int Engine::tick() {
    uint64_t events;
    // Fails if there is nothing to take away, which is no harm.
    [[maybe_unused]] ssize_t ignored = read(m_event_fd, &events, sizeof events);
    return m_path ? m_path->tick() : IDLE_TICK_MS;
}

void Engine::push(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended) {
    check_address(dpaddr);
    if (!m_path) throw Error("the data path isn't active");
    m_path->push(pkts, extended);
}

std::string Engine::coffee(const std::string& dpaddr, const std::string& func,
                           const std::vector<uint32_t>& args) {
    check_address(dpaddr);
    return run_coffee(m_path.get(), func, args);
}

void Engine::check_address(const std::string& dpaddr) {
    if (dpaddr.empty() || dpaddr == data_path_name()) return;
    throw Error("no data path '" + dpaddr + "', expecting '" + data_path_name() + "' or nothing");
}

const std::string& Engine::data_path_name() {
    static const std::string name = "dp0";
    return name;
}

Json::Value Engine::version() {
    Json::Value out(Json::objectValue);
    out["name"] = "brumecpd engine";
    out["version"] = ENGINE_VERSION;
    out["ndpi"] = ndpi_revision();
    return out;
}

}  // namespace corvo::engine
