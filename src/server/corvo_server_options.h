#pragma once
// The settings of a Server, filled from the command line.

#include <cstdint>
#include <string>
#include <vector>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_wd_conf.h"

namespace corvo::server {

struct Options {
    enum transport_e : uint32_t { TRANSPORT_UNIX = 0, TRANSPORT_TCP = 1 };
    enum mode_e : uint32_t { MODE_KERNEL = 0, MODE_USERSPACE = 1 };

    transport_e transport = TRANSPORT_UNIX;
    std::string unix_path;
    std::string tcp_addr;
    uint16_t tcp_port = 0;
    mode_e mode = MODE_KERNEL;
    Logger::logger_level_e level = Logger::INFO;
    std::string log_file;
    std::string config_file;
    std::vector<std::string> interfaces;  ///< attached at start, in this order
    bool activate = false;
    bool daemon = false;
    bool set_global = true;  ///< lets Server::init set Server::g_ptr and daemonise
    WDConf wd;
    bool traced = false;  ///< a debugger or tracer is attached
};

}  // namespace corvo::server
