// The daemon in kernel mode, with a /proc of the test's own: no machine has this module.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "infra/corvo_version.h"
#include "support/daemon.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

/** Stands in for /proc: the real one's entries, but a list of modules that the test writes. */
class OwnProc {
 public:
    OwnProc() {
        fs::create_directory(m_dir.file("proc"));
        fs::create_directory(m_dir.file("real"));
        for (const auto& entry : fs::directory_iterator("/proc")) {
            const std::string name = entry.path().filename();
            if (name != "modules") fs::create_symlink(m_dir.file("real/" + name), m_dir.file("proc/" + name));
        }
    }
    void set_modules(const std::string& text) const { m_dir.write("proc/modules", text); }
    /** Puts it in place for the calling process and its children. */
    bool mount() const {
        return unshare(CLONE_NEWNS) == 0 &&
               ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               ::mount("/proc", m_dir.file("real").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
               ::mount(m_dir.file("proc").c_str(), "/proc", nullptr, MS_BIND, nullptr) == 0;
    }
    bool is_permitted() const {
        const pid_t pid = fork();
        if (pid == 0) _exit(mount() ? 0 : 1);
        int status = -1;
        waitpid(pid, &status, 0);
        return status == 0;
    }

 private:
    TempDir m_dir;
};

/** What a build makes of a `load`: empty if it succeeds. */
std::string expected_failure(bool module_present) {
    using corvo::Version;
    if (Version::g_bare_metal) return "Auto SHM configuration is not supported on bare metal mode";
    if (Version::g_in_slave_mode) return module_present ? "" : "CVDP module is NOT loaded";
    if (module_present) return "CVDP module is already loaded";
    return "loading '../modules/cvdp.ko' failed: No such file or directory";
}

TEST(KernelMode, TheEngineIsLoadedWhereItsModuleIs) {
    const OwnProc proc;
    if (!proc.is_permitted()) GTEST_SKIP() << "may not mount";
    TempDir engine;
    fs::create_symlink(SCRIPTED_ENGINE_DIR "/libcvcp_u.so", engine.file("libcvcp_k.so"));
    // The leak check at the end of a sanitized program can't read this /proc.
    Daemon daemon({.engine_dir = engine.path(),
                   .env = {{"ASAN_OPTIONS", "detect_leaks=0"}},
                   .mode = "km",
                   .before_exec = [&] {
                       if (!proc.mount()) _exit(126);
                   }});
    EXPECT_THAT(daemon.log(), HasSubstr("Configured in: 'kernel mode'"));
    EXPECT_EQ(daemon.result("status")["mode"], "kernel");

    for (const bool present : {false, true}) {
        proc.set_modules(present ? "cvdp 4096 1 - Live 0x0\n" : "cvdp2 4096 1\n");
        const std::string expected = expected_failure(present);
        if (!expected.empty()) {
            EXPECT_EQ(daemon.failure("load"), expected);
            continue;
        }
        daemon.result("load");
        EXPECT_EQ(daemon.result("status")["state"], "deactivated");
        daemon.result("unload");
    }
    EXPECT_EQ(daemon.failure("load", parse(R"({"shm":{"type":"devmem"}})")),
              "devmem SHM configuration is not supported on kernel mode");
    EXPECT_EQ(daemon.stop(), 0);
}

}  // namespace
}  // namespace test
