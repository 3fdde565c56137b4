#include "server/corvo_server_loader_km.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
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

/** Records what is asked of the kernel. A file that isn't in `proc` can't be opened. */
struct ScriptedKernel : KernelModules {
    std::map<std::string, std::string> proc;
    int image_errno = 0;
    int init_errno = 0;
    int delete_errno = 0;
    std::vector<std::string> calls;  ///< ends in "!" if the hog signal could have interrupted it

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
        return finish(init_errno, "cvdp 4096 0 - Live 0x0\n");
    }
    int delete_module(const std::string& name) override {
        calls.push_back("delete " + name);
        return finish(delete_errno, "");
    }
    int finish(int err, const char* modules) {
        if (!hog_signal_waits()) calls.back() += "!";
        if (err == 0) proc["/proc/modules"] = modules;
        return err;
    }
};

/** An engine with its own kernel and a folder that holds its library. */
struct Rig {
    explicit Rig(bool slave_mode, const char* modules) : engine(sched, take_kernel(), slave_mode) {
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
    /** The text of the failure of a load or an unload; empty if it succeeds. */
    std::string load_failure(const std::string& path) {
        return test::error_of([&] { engine.load_engine(path, {}); });
    }
    std::string load_failure() { return load_failure(dir.path()); }
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
constexpr const char* NO_LIST = "unable to open /proc/modules";

TEST(KernelEngine, ItsModuleMustBeThereInSlaveModeAndMustNotOtherwise) {
    const std::tuple<bool, const char*, std::string, std::vector<std::string>> cases[] = {
        {true, PRESENT, "", {}},
        {true, ABSENT, "CVDP module is NOT loaded", {}},
        {true, nullptr, NO_LIST, {}},
        {false, PRESENT, "CVDP module is already loaded", {}},
        {false, ABSENT, "", {"read ../modules/cvdp.ko", "init ko mt=1"}},
        {false, nullptr, NO_LIST, {}},
    };
    for (const auto& [slave_mode, modules, failure, calls] : cases) {
        Rig rig(slave_mode, modules);
        EXPECT_EQ(rig.load_failure(), failure);
        EXPECT_EQ(rig.engine.state(), failure.empty() ? Engine::STATE_LOADED : Engine::STATE_UNLOADED);
        EXPECT_EQ(rig.kernel->calls, calls) << "a module that isn't ours stays as it is";
    }
}

TEST(KernelEngine, AModuleThatDoesNotComeInSaysWhy) {
    const std::tuple<int ScriptedKernel::*, int, const char*> cases[] = {
        {&ScriptedKernel::image_errno, ENOENT, "No such file or directory"},
        {&ScriptedKernel::init_errno, ENOENT, "Unknown symbol in module"},
        {&ScriptedKernel::init_errno, ESRCH, "Module has wrong symbol version"},
        {&ScriptedKernel::init_errno, ENOEXEC, "Invalid module format"},
        {&ScriptedKernel::init_errno, EINVAL, "Invalid parameters"},
        {&ScriptedKernel::init_errno, EPERM, "Operation not permitted"},
    };
    for (const auto& [step, err, reason] : cases) {
        Rig rig(false, ABSENT);
        rig.kernel->*step = err;
        EXPECT_EQ(rig.load_failure(), std::string("loading '../modules/cvdp.ko' failed: ") + reason);
        EXPECT_FALSE(hog_signal_waits());
        rig.kernel->*step = 0;
        EXPECT_EQ(rig.load_failure(), "") << "the next load starts afresh";
    }
}

TEST(KernelEngine, AModuleLeavesAgainIfTheLibraryDoesNotOpen) {
    Rig rig(false, ABSENT);
    EXPECT_THAT(rig.load_failure("/nowhere"),
                StartsWith("failed loading VELD CP dynamic library: /nowhere/libcvcp_k.so"));
    EXPECT_THAT(rig.kernel->calls, ElementsAre("read ../modules/cvdp.ko", "init ko mt=1", "delete cvdp"));
    EXPECT_EQ(rig.load_failure(), "");
}

TEST(KernelEngine, AnUnloadTakesOutWhatIsOursAndAlwaysClosesTheLibrary) {
    const std::tuple<bool, const char*, int, std::string, bool> cases[] = {
        {true, PRESENT, 0, "", false},
        {true, nullptr, 0, "", false},
        {false, PRESENT, 0, "", true},
        {false, ABSENT, 0, "", false},
        {false, nullptr, 0, NO_LIST, false},
        {false, "cvdp 4096 2 a,b,", 0, "unable to unload 'cvdp' - module has dependencies", false},
        {false, "cvdp\n", 0, "", true},
        {false, PRESENT, EINVAL, "unloading 'cvdp' failed: Invalid parameters", true},
    };
    for (const auto& [slave_mode, modules, err, failure, deleted] : cases) {
        SCOPED_TRACE(std::string(slave_mode ? "slave, " : "alone, ") + (modules ? modules : "no list"));
        Rig rig(slave_mode, slave_mode ? PRESENT : ABSENT);
        ASSERT_EQ(rig.load_failure(), "");
        rig.kernel->calls.clear();
        rig.kernel->proc.clear();
        if (modules) rig.kernel->proc["/proc/modules"] = modules;
        rig.kernel->delete_errno = err;
        EXPECT_EQ(rig.unload_failure(), failure);
        EXPECT_FALSE(hog_signal_waits());
        EXPECT_EQ(rig.engine.state(), Engine::STATE_UNLOADED);
        EXPECT_EQ(rig.log.count("Unloading VELD CP library"), 1);
        EXPECT_EQ(rig.kernel->calls, std::vector<std::string>(deleted, "delete cvdp"));
        EXPECT_EQ(rig.unload_failure(), "") << "nothing is left to unload";
    }
}

TEST(KernelEngine, MemoryTracesAreReadWhereTheModuleProvidesThem) {
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
    const auto kernel = running_kernel();
    std::vector<char> image;
    EXPECT_EQ(kernel->read_image(dir.write("cvdp.ko", content), image), 0);
    EXPECT_EQ(std::string(image.begin(), image.end()), content);
    EXPECT_EQ(kernel->read_image(dir.file("absent"), image), ENOENT);
    EXPECT_EQ(kernel->read_image(dir.path(), image), EISDIR);
    std::string text = "before";
    EXPECT_FALSE(kernel->read_proc(dir.file("absent"), text));
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(kernel->read_proc("/proc/self/status", text));
    EXPECT_THAT(text, StartsWith("Name:"));
    // Neither can succeed: the one is no module, the other isn't loaded.
    EXPECT_NE(kernel->init_module(image, ""), 0);
    EXPECT_NE(kernel->delete_module("brumecpd_no_such_module"), 0);
}

}  // namespace
}  // namespace corvo::server
