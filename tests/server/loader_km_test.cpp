#include "server/corvo_server_loader_km.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>

#include "infra/corvo_scheduler.h"
#include "support/capture_logger.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo::server {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using testing::UnorderedElementsAre;

bool hog_signal_waits() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGUSR1) == 1;
}

/** A kernel that keeps what is asked of it. A file that isn't in `proc` can't be opened. */
struct ScriptedKernel : KernelModules {
    std::map<std::string, std::string> proc;
    int image_errno = 0;
    int init_errno = 0;
    int delete_errno = 0;
    std::vector<std::string> calls;
    std::vector<bool> hog_signal_waited;  ///< at each call that brings a module in or takes it out

    bool read_proc(const std::string& path, std::string& out) override {
        if (!proc.contains(path)) return false;
        out = proc[path];
        return true;
    }
    int read_image(const std::string& path, std::vector<char>& out) override {
        calls.push_back("read " + path);
        out = {'k', 'o'};
        return image_errno;
    }
    int init_module(const std::vector<char>& image, const std::string& parameters) override {
        calls.push_back("init " + std::string(image.begin(), image.end()) + " " + parameters);
        hog_signal_waited.push_back(hog_signal_waits());
        if (init_errno == 0) proc["/proc/modules"] = "cvdp 4096 0 - Live 0x0\n";
        return init_errno;
    }
    int delete_module(const std::string& name) override {
        calls.push_back("delete " + name);
        hog_signal_waited.push_back(hog_signal_waits());
        if (delete_errno == 0) proc["/proc/modules"].clear();
        return delete_errno;
    }
};

/** An engine with a kernel of its own and a folder in which its library is. */
struct Rig {
    explicit Rig(bool slave_mode, const char* modules = nullptr) : engine(sched, take_kernel(), slave_mode) {
        setenv("TEST_ENGINE_LOG", dir.file("calls").c_str(), 1);
        setenv("TEST_ENGINE_SCRIPT", dir.file("script").c_str(), 1);
        std::filesystem::create_symlink(TEST_ENGINES_DIR "/scripted/libcvcp_u.so", dir.file("libcvcp_k.so"));
        if (modules) kernel->proc["/proc/modules"] = modules;
    }
    ~Rig() {
        kernel->proc["/proc/modules"].clear();
        engine.cleanup();
    }
    std::unique_ptr<KernelModules> take_kernel() {
        auto made = std::make_unique<ScriptedKernel>();
        kernel = made.get();
        return made;
    }
    /** The text with which a load or an unload fails, empty if it doesn't. */
    std::string load_failure() { return load_failure(dir.path()); }
    std::string load_failure(const std::string& path) {
        return test::error_of([&] { engine.load_engine(path, {}); });
    }
    std::string unload_failure() {
        return test::error_of([&] { engine.unload_engine(); });
    }

    test::TempDir dir;
    test::CaptureLogger log{Logger::DEBUG};
    Scheduler sched;
    ScriptedKernel* kernel = nullptr;
    EngineKM engine;
};

constexpr const char* PRESENT = "ext4 1 2\ncvdp 4096 0 - Live 0x0\n";
constexpr const char* ABSENT = "ext4 1 cvdp\n\ncvdp2 4096 1\nxcvdp 1 1\n";
constexpr const char* FILE_FAILURE = "loading '../modules/cvdp.ko' failed: ";

TEST(KernelEngine, ItsModuleMustBeThereInSlaveModeAndMustNotOtherwise) {
    const struct {
        bool slave_mode;
        const char* modules;
        const char* failure;
        std::vector<std::string> calls;
    } cases[] = {
        {true, PRESENT, "", {}},
        {true, ABSENT, "CVDP module is NOT loaded", {}},
        {true, nullptr, "unable to open /proc/modules", {}},
        {false, PRESENT, "CVDP module is already loaded", {}},
        {false, ABSENT, "", {"read ../modules/cvdp.ko", "init ko mt=1"}},
        {false, nullptr, "unable to open /proc/modules", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.slave_mode ? "slave, " : "alone, ") + (c.modules ? c.modules : "no list"));
        Rig rig(c.slave_mode, c.modules);
        EXPECT_EQ(rig.load_failure(), c.failure);
        EXPECT_EQ(rig.engine.state(), *c.failure ? Engine::STATE_UNLOADED : Engine::STATE_LOADED);
        EXPECT_EQ(rig.kernel->calls, c.calls) << "a module that isn't ours stays as it is";
    }
}

TEST(KernelEngine, AModuleThatDoesNotComeInSaysWhy) {
    const struct {
        int ScriptedKernel::*step;
        int err;
        std::string reason;
    } cases[] = {
        {&ScriptedKernel::image_errno, ENOENT, std::strerror(ENOENT)},
        {&ScriptedKernel::image_errno, EINVAL, std::strerror(EINVAL)},
        {&ScriptedKernel::init_errno, ENOENT, "Unknown symbol in module"},
        {&ScriptedKernel::init_errno, ESRCH, "Module has wrong symbol version"},
        {&ScriptedKernel::init_errno, ENOEXEC, "Invalid module format"},
        {&ScriptedKernel::init_errno, EINVAL, "Invalid parameters"},
        {&ScriptedKernel::init_errno, EPERM, std::strerror(EPERM)},
    };
    for (const auto& c : cases) {
        Rig rig(false, ABSENT);
        rig.kernel->*c.step = c.err;
        EXPECT_EQ(rig.load_failure(), FILE_FAILURE + c.reason);
        rig.kernel->*c.step = 0;
        EXPECT_EQ(rig.load_failure(), "") << "the next load starts afresh";
    }
}

TEST(KernelEngine, TheHogSignalDoesNotInterruptTheKernelsModuleCalls) {
    Rig rig(false, ABSENT);
    for (const int err : {EINVAL, 0}) {
        rig.kernel->init_errno = err;
        rig.load_failure();
        EXPECT_FALSE(hog_signal_waits());
    }
    rig.kernel->delete_errno = EBUSY;
    rig.unload_failure();
    EXPECT_FALSE(hog_signal_waits());
    EXPECT_THAT(rig.kernel->hog_signal_waited, ElementsAre(true, true, true));
}

TEST(KernelEngine, AModuleLeavesAgainIfTheLibraryDoesNotOpen) {
    Rig rig(false, ABSENT);
    EXPECT_THAT(rig.load_failure("/nowhere"),
                StartsWith("failed loading VELD CP dynamic library: /nowhere/libcvcp_k.so"));
    EXPECT_THAT(rig.kernel->calls, ElementsAre("read ../modules/cvdp.ko", "init ko mt=1", "delete cvdp"));
    EXPECT_EQ(rig.load_failure(), "");
}

TEST(KernelEngine, AnUnloadTakesOutWhatIsOursAndAlwaysClosesTheLibrary) {
    const struct {
        bool slave_mode;
        const char* modules;  ///< at the time of the unload
        int delete_errno;
        const char* failure;
        bool deleted;
    } cases[] = {
        {true, PRESENT, 0, "", false},
        {true, nullptr, 0, "", false},
        {false, PRESENT, 0, "", true},
        {false, ABSENT, 0, "", false},
        {false, nullptr, 0, "unable to open /proc/modules", false},
        {false, "cvdp 4096 2 a,b,", 0, "unable to unload 'cvdp' - module has dependencies", false},
        {false, "cvdp\n", 0, "", true},
        {false, PRESENT, EINVAL, "unloading 'cvdp' failed: Invalid parameters", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.slave_mode ? "slave, " : "alone, ") + (c.modules ? c.modules : "no list"));
        Rig rig(c.slave_mode, c.slave_mode ? PRESENT : ABSENT);
        ASSERT_EQ(rig.load_failure(), "");
        rig.kernel->calls.clear();
        rig.kernel->proc.clear();
        if (c.modules) rig.kernel->proc["/proc/modules"] = c.modules;
        rig.kernel->delete_errno = c.delete_errno;

        EXPECT_EQ(rig.unload_failure(), c.failure);
        EXPECT_EQ(rig.engine.state(), Engine::STATE_UNLOADED);
        EXPECT_EQ(rig.engine.get_engine_path_int(), "");
        EXPECT_EQ(rig.log.count("Unloading VELD CP library"), 1);
        EXPECT_EQ(rig.kernel->calls.size(), c.deleted ? 1u : 0u);
        EXPECT_EQ(rig.unload_failure(), "") << "nothing is left to unload";
    }
}

TEST(KernelEngine, MemoryTracesAreReadWhereTheModuleGivesThem) {
    constexpr uint64_t MINUS_THREE = std::numeric_limits<uint64_t>::max() - 2;
    Rig rig(true, PRESENT);
    rig.kernel->proc["/proc/brume_lm_ft_mt"] = "flows 12\n\n  lonely \n\t keys  -3 7 \r\nwords many\n";
    Engine::mt_info info = {{"ft", {{"flows", 1}, {"kept", 5}}}, {"dp", {{"gone", 1}}}};
    rig.engine.get_mt_info_int(info);
    EXPECT_THAT(info["ft"], UnorderedElementsAre(Pair("flows", 12), Pair("kept", 5),
                                                 Pair("keys", MINUS_THREE), Pair("words", 0)));
    EXPECT_THAT(info["dp"], IsEmpty());
}

TEST(RunningKernel, FilesAreReadWholeAndRefusalsTellTheirReason) {
    test::TempDir dir;
    const std::string content("\0ELF\n\xff", 6);
    const std::string path = dir.write("cvdp.ko", content);
    const auto kernel = running_kernel();
    std::vector<char> image;
    EXPECT_EQ(kernel->read_image(path, image), 0);
    EXPECT_EQ(std::string(image.begin(), image.end()), content);
    EXPECT_EQ(kernel->read_image(dir.file("absent"), image), ENOENT);
    EXPECT_EQ(kernel->read_image(dir.path(), image), EISDIR);

    std::string text = "before";
    EXPECT_FALSE(kernel->read_proc(dir.file("absent"), text));
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(kernel->read_proc("/proc/self/status", text));
    EXPECT_THAT(text, StartsWith("Name:"));
    // Neither succeeds anywhere: the one is no module, the other isn't loaded.
    EXPECT_NE(kernel->init_module(image, ""), 0);
    EXPECT_NE(kernel->delete_module("brumecpd_no_such_module"), 0);
}

}  // namespace
}  // namespace corvo::server
