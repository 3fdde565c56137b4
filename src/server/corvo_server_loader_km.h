#pragma once
// The engine in the kernel: a module that carries the data path, and a shared library that talks to it. In
// slave mode the host system owns the module: it must already be loaded, and it stays loaded.

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "infra/corvo_version.h"
#include "server/corvo_kernel_modules.h"
#include "server/corvo_server_loader.h"

namespace corvo::server {

class EngineKM : public Engine {
 public:
    explicit EngineKM(Scheduler& sched, std::unique_ptr<KernelModules> kernel = running_kernel(),
                      bool slave_mode = Version::g_in_slave_mode);

    std::string& get_mode_int() override { return m_mode; }
    std::string& get_engine_path_int() override { return m_path; }
    /** The module's own figures about its memory; the maps are empty if it reports none. */
    void get_mt_info_int(mt_info& out) override;

    /** Loads the module, unless the host system owns it. The module's file doesn't depend on `path`. */
    void load_kms(const std::string& path, bool mt);
    void load_so(const std::string& path);
    /** Sets the value for each line "name number" and leaves all other names alone. */
    static void parse_mt_info(const std::string& text, std::unordered_map<std::string, uint64_t>& out);

 protected:
    void load_engine_int(const std::string& path, bool mt) override;
    void unload_engine_int() override;

 private:
    /** `users` may be null; it is untouched if the module isn't loaded. */
    bool is_km_loaded(const std::string& name, unsigned int* users);
    void remove_module();

    std::unique_ptr<KernelModules> m_kernel;
    bool m_slave_mode;
};

/** The text for an errno value from the kernel's module calls. */
const char* moderror(int err);

/** Splits at the delimiter, trims white space, and skips empty pieces. */
std::vector<std::string> split(const std::string& text, char delim);

}  // namespace corvo::server
