#pragma once
// What the kernel engine needs from the running kernel: its lists under /proc, and the calls to load and
// remove a module. A seam: the daemon uses the real kernel, tests script their own.

#include <memory>
#include <string>
#include <vector>

namespace corvo::server {

class KernelModules {
 public:
    virtual ~KernelModules() = default;

    /** Reads a whole file under /proc. If it can't be opened, returns false and leaves `out` untouched. */
    virtual bool read_proc(const std::string& path, std::string& out) = 0;
    /** Reads a whole module file. Returns 0, or the errno value of the step that failed. */
    virtual int read_image(const std::string& path, std::vector<char>& out) = 0;
    /** Loads a module into the kernel with its parameters. Returns 0 or an errno value. */
    virtual int init_module(const std::vector<char>& image, const std::string& parameters) = 0;
    /** Removes a module from the kernel. Returns 0 or an errno value. */
    virtual int delete_module(const std::string& name) = 0;
};

/** The kernel that this process runs on. */
std::unique_ptr<KernelModules> running_kernel();

}  // namespace corvo::server
