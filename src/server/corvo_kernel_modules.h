#pragma once
// What the kernel engine needs of the running kernel: its lists below /proc and the calls that bring a module
// in and take it out. A seam: the daemon speaks to the kernel, tests script their own.

#include <memory>
#include <string>
#include <vector>

namespace corvo::server {

class KernelModules {
 public:
    virtual ~KernelModules() = default;

    /** Reads a file below /proc whole. False if it can't be opened; `out` is then untouched. */
    virtual bool read_proc(const std::string& path, std::string& out) = 0;
    /** Reads a module's file whole. Gives 0 or the errno value of the step that failed. */
    virtual int read_image(const std::string& path, std::vector<char>& out) = 0;
    /** Hands a module to the kernel, with its parameters. Gives 0 or an errno value. */
    virtual int init_module(const std::vector<char>& image, const std::string& parameters) = 0;
    /** Takes a module out of the kernel. Gives 0 or an errno value. */
    virtual int delete_module(const std::string& name) = 0;
};

/** The kernel that this process runs on. */
std::unique_ptr<KernelModules> running_kernel();

}  // namespace corvo::server
