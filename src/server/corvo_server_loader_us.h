#pragma once
// The engine in user space: a single shared library.

#include "server/corvo_server_loader.h"

namespace corvo::server {

class EngineUS : public Engine {
 public:
    explicit EngineUS(Scheduler& sched) : Engine("userspace", sched) {}

    std::string& get_mode_int() override { return m_mode; }
    std::string& get_engine_path_int() override { return m_path; }
    /** Nothing is traced in user space: two empty maps. */
    void get_mt_info_int(mt_info& out) override;

 protected:
    void load_engine_int(const std::string& path, bool mt) override;
    void unload_engine_int() override;
};

}  // namespace corvo::server
