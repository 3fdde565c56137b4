#include "server/corvo_kernel_modules.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "utils/unique_fd.h"

namespace corvo::server {

namespace {

class RunningKernel : public KernelModules {
 public:
    bool read_proc(const std::string& path, std::string& out) override {
        std::ifstream file(path);
        if (!file) return false;
        out.assign(std::istreambuf_iterator<char>(file), {});
        return true;
    }

    int read_image(const std::string& path, std::vector<char>& out) override {
        UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        struct stat info {};
        if (!fd || fstat(fd.get(), &info) != 0) return errno;
        out.resize(static_cast<size_t>(info.st_size));
        // If the file has shrunk in the meantime, the kernel will reject it.
        if (read(fd.get(), out.data(), out.size()) < 0) return errno;
        return close(fd.release()) == 0 ? 0 : errno;
    }

    // The C library has no wrappers for these two.
    int init_module(const std::vector<char>& image, const std::string& parameters) override {
        return syscall(SYS_init_module, image.data(), image.size(), parameters.c_str()) == 0 ? 0 : errno;
    }

    int delete_module(const std::string& name) override {
        return syscall(SYS_delete_module, name.c_str(), 0) == 0 ? 0 : errno;
    }
};

}  // namespace

std::unique_ptr<KernelModules> running_kernel() {
    return std::make_unique<RunningKernel>();
}

}  // namespace corvo::server
