#pragma once
// The engine behind the entry points: what exists from init to deinit. Says which call may come when; every
// operation throws Error with a text for the caller, and then nothing has changed.

#include <brumecpd/engine_api.h>

#include <memory>
#include <string>
#include <vector>

#include "data_path.h"

namespace corvo::engine {

class Engine {
 public:
    explicit Engine(const api::InitConfig& config);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine();

    void activate(const api::ActivateConfig& config);
    void deactivate();
    int tick();
    /** Readable when a tick is wanted at once; open as long as the engine. */
    int event_fd() const { return m_event_fd; }

    void push(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended);
    std::string coffee(const std::string& dpaddr, const std::string& func, const std::vector<uint32_t>& args);

    static Json::Value version();
    static const std::string& data_path_name();

 private:
    static void check_address(const std::string& dpaddr);

    int m_event_fd;
    std::unique_ptr<DataPath> m_path;  ///< only while active
};

}  // namespace corvo::engine
