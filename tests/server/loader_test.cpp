// Engines: loaded, run and unloaded, with the scripted library.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "infra/corvo_scheduler.h"
#include "server/corvo_server_loader_us.h"
#include "server/corvo_server_tick.h"
#include "support/capture_logger.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"

namespace corvo::server {
namespace {

using test::error_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using enum Engine::state_e;

class LoaderTest : public testing::Test {
 public:
    LoaderTest() : m_engine(m_sched) {
        setenv("TEST_ENGINE_LOG", m_dir.file("calls").c_str(), 1);
        setenv("TEST_ENGINE_SCRIPT", m_dir.file("script").c_str(), 1);
    }
    ~LoaderTest() override {
        script("");
        m_engine.cleanup();
    }

    static std::string engine_dir(const std::string& name) { return TEST_ENGINES_DIR "/" + name; }
    void script(const std::string& text) { m_dir.write("script", text); }
    /** The calls that the library has received since the last look, one per line. */
    std::string calls() {
        std::string text = test::read_file(m_dir.file("calls"));
        m_dir.write("calls", "");
        return text;
    }
    /** Loads, activates and attaches "eth0", as far as `state` needs it. */
    void bring_up(Engine::state_e state) {
        if (state >= STATE_LOADED) m_engine.load_engine(engine_dir("scripted"), {});
        if (state >= STATE_ACTIVE) m_engine.activate({});
        if (state >= STATE_ATTACHED) m_engine.attach("eth0");
        calls();
    }

    test::TempDir m_dir;
    test::CaptureLogger m_log{Logger::INFO};
    Scheduler m_sched;
    EngineUS m_engine;
};

// tests/process/methods_test.py tries the other operations in every state.
TEST_F(LoaderTest, InterfacesAndAVersionAreThereOnceADataPathIsActive) {
    for (const auto state : {STATE_UNLOADED, STATE_LOADED, STATE_ACTIVE, STATE_ATTACHED}) {
        SCOPED_TRACE(engine_state_to_str(state));
        bring_up(state);
        const bool active = state >= STATE_ACTIVE;
        const char* refusal = active ? "" : "corvo is not active";
        Json::Value version;
        std::vector<std::string> interfaces;
        EXPECT_EQ(error_of([&] { m_engine.get_interfaces(interfaces); }), "");
        EXPECT_EQ(error_of([&] { m_engine.get_version(version); }), active ? "" : "corvo is not loaded");
        EXPECT_EQ(error_of([&] { m_engine.detach("eth0"); }), refusal);
        EXPECT_EQ(m_engine.state(), std::min(state, STATE_ACTIVE));
        EXPECT_EQ(error_of([&] { m_engine.attach("eth1"); }), refusal);
        EXPECT_EQ(m_engine.state(), active ? STATE_ATTACHED : state);
        EXPECT_EQ(error_of([&] { m_engine.detach_all(); }), refusal);
        EXPECT_EQ(m_engine.state(), std::min(state, STATE_ACTIVE));
        m_engine.cleanup();
        EXPECT_EQ(m_engine.state(), STATE_UNLOADED);
    }
}

TEST_F(LoaderTest, AFailedLoadLeavesNothingAndTheNextOneSucceeds) {
    const std::tuple<const char*, const char*, const char*, bool> libraries[] = {
        // library, its script; how the load fails, whether the library is told to end
        {"absent", "", "failed loading Corvo CP dynamic library: ", false},
        {"not_a_library", "", "failed loading Corvo CP dynamic library: ", false},
        {"without_activate", "", "failed loading symbol 'corvo_api_cp_activate': ", false},
        {"without_coffee", "", "failed loading symbol 'corvo_api_cp_coffee': ", false},
        {"without_get_evfd", "", "failed loading symbol 'corvo_api_cp_get_evfd': ", false},
        {"init_fails", "", "100% broken", false},
        {"evfd_zero", "", "engine gave no valid event descriptor (0)", false},
        {"evfd_closed", "", "failed to add event to poller", false},
        {"scripted", "fail init no %s memory", "no %s memory", false},
        {"scripted", "crash init throw", "scripted exception", false},
        {"scripted", "fail get_evfd no descriptor", "no descriptor", true},
        {"scripted", "return get_evfd -1\nfail deinit too", "engine gave no valid event descriptor (-1)",
         true},
    };
    bring_up(STATE_LOADED);  // the poller opens a descriptor of its own for the first event
    m_engine.cleanup();
    calls();
    const size_t descriptors = test::open_descriptors();
    for (const auto& [name, text, failure, deinit_expected] : libraries) {
        SCOPED_TRACE(std::string(name) + " " + text);
        script(text);
        EXPECT_THAT(error_of([&, dir = engine_dir(name)] { m_engine.load_engine(dir, {}); }),
                    StartsWith(failure));
        EXPECT_EQ(m_engine.state(), STATE_UNLOADED);
        EXPECT_EQ(m_engine.get_engine_path_int(), "");
        EXPECT_EQ(test::open_descriptors(), descriptors);
        EXPECT_THAT(test::read_file("/proc/self/maps"), Not(HasSubstr("libcvcp_u.so")));
        Json::Value stats;
        m_sched.stats(stats);
        EXPECT_EQ(stats["tasks"]["tasks"].size(), 1u) << "the scheduler's own task";
        EXPECT_EQ(calls().find("deinit") != std::string::npos, deinit_expected);

        script("");
        bring_up(STATE_ACTIVE);
        m_engine.cleanup();
        calls();
    }
    // Opening a pipe would wait for its writer.
    ASSERT_EQ(mkfifo(m_dir.file("libcvcp_u.so").c_str(), 0600), 0);
    EXPECT_THAT(error_of([&] { m_engine.load_engine(m_dir.path(), {}); }), HasSubstr("Not a regular file"));
}

std::vector<Engine::state_e> g_seen;
void remember(Engine::state_e state) {
    g_seen.push_back(state);
}
void object(Engine::state_e) {
    throw Exception("callback objects");
}

TEST_F(LoaderTest, CallbacksSeeLoadActivateDeactivateAndUnloadOnce) {
    g_seen.clear();
    m_engine.register_state_cb(remember);
    bring_up(STATE_ATTACHED);
    m_engine.cleanup();
    EXPECT_THAT(g_seen, ElementsAre(STATE_LOADED, STATE_ACTIVE, STATE_LOADED, STATE_UNLOADED));

    m_engine.unregister_state_cb(remember);
    m_engine.unregister_state_cb(remember);
    EXPECT_EQ(m_log.count("Unregistering state change callback failed - Callback not found"), 1);
    bring_up(STATE_LOADED);
    EXPECT_EQ(g_seen.size(), 4u);
}

TEST_F(LoaderTest, AFailingCallbackHidesNoChangeFromTheOthersAndUndoesALoad) {
    g_seen.clear();
    bring_up(STATE_LOADED);
    m_engine.register_state_cb(object);
    m_engine.register_state_cb(remember);
    EXPECT_EQ(error_of([&] { m_engine.activate({}); }), "callback objects");
    EXPECT_EQ(m_engine.state(), STATE_ACTIVE);
    EXPECT_THAT(g_seen, ElementsAre(STATE_ACTIVE));
    m_engine.unregister_state_cb(object);
    m_engine.cleanup();

    m_engine.register_state_cb(object);
    EXPECT_EQ(error_of([&] { bring_up(STATE_LOADED); }), "callback objects");
    EXPECT_EQ(m_engine.state(), STATE_UNLOADED);
    m_engine.unregister_state_cb(object);
}

TEST_F(LoaderTest, AFailureOfTheEngineReachesTheCallerUnchangedAndStopsAllButAnUnload) {
    const std::tuple<const char*, Engine::state_e, Engine::state_e, void (*)(Engine&)> cases[] = {
        // what fails, the states before and after, the call
        {"fail activate", STATE_LOADED, STATE_LOADED, [](Engine& e) { e.activate({}); }},
        {"fail intf_attach", STATE_ACTIVE, STATE_ACTIVE, [](Engine& e) { e.attach("eth0"); }},
        {"fail intf_detach", STATE_ATTACHED, STATE_ATTACHED, [](Engine& e) { e.detach("eth0"); }},
        {"fail intf_get", STATE_ATTACHED, STATE_ATTACHED, [](Engine& e) { e.detach("eth0"); }},
        {"fail intf_detach", STATE_ATTACHED, STATE_ATTACHED, [](Engine& e) { e.cleanup(); }},
        {"fail deactivate", STATE_ACTIVE, STATE_ACTIVE, [](Engine& e) { e.deactivate(); }},
        {"fail coffee", STATE_LOADED, STATE_LOADED, [](Engine& e) { e.coffee("", "f", {}); }},
        {"fail deinit", STATE_LOADED, STATE_UNLOADED, [](Engine& e) { e.unload_engine(); }},
    };
    for (const auto& [what, before, after, run] : cases) {
        SCOPED_TRACE(what);
        bring_up(before);
        script(std::string(what) + " 5% of %n lost");
        EXPECT_EQ(error_of([&, run = run] { run(m_engine); }), "5% of %n lost");
        EXPECT_EQ(m_engine.state(), after);
        script("");
        m_engine.cleanup();
        EXPECT_THAT(test::read_file("/proc/self/maps"), Not(HasSubstr("libcvcp_u.so")));
    }
}

TEST_F(LoaderTest, OnlyADetachOfTheLastInterfaceDetaches) {
    bring_up(STATE_ATTACHED);
    m_engine.attach("eth1");
    m_engine.detach("eth0");
    EXPECT_EQ(m_engine.state(), STATE_ATTACHED);
    m_engine.detach("eth1");
    EXPECT_EQ(m_engine.state(), STATE_ACTIVE);

    m_engine.attach("eth0");
    script("list intf eth0");
    m_engine.detach_all();
    EXPECT_EQ(m_engine.state(), STATE_ACTIVE) << "whatever the engine lists";
    EXPECT_EQ(m_log.count("[WARN ]"), 1);
    calls();
    script("list intf eth0\nfail intf_detach 100% stuck");
    m_engine.deactivate();
    EXPECT_EQ(m_engine.state(), STATE_LOADED);
    EXPECT_EQ(calls(), "intf_get\nintf_detach eth0\ndeactivate\n");
    EXPECT_EQ(m_log.count("100% stuck"), 1);
}

TEST_F(LoaderTest, TheTicksResultIsTheDelayEvenWhenItFailedUnlessItThrew) {
    bring_up(STATE_LOADED);
    EngineTask task(&m_engine);
    for (auto [text, delay_ms] : {std::pair{"return tick -5", 1000},
                                  {"return tick 0", 0},
                                  {"return tick 250\nfail tick 3%d lost", 250},
                                  {"return tick 5\ncrash tick throw_int", 1000}}) {
        script(text);
        EXPECT_EQ(task.execute(), delay_ms) << text;
    }
    for (const char* text : {"3%d lost", "engine threw an exception of unknown type"})
        EXPECT_EQ(m_log.count("Engine error '" + std::string(text) + "'"), 1);
    m_engine.unload_engine();
    EXPECT_EQ(task.execute(), 1000);
}

TEST_F(LoaderTest, AReadableDescriptorIsAnExtraTickAndMovesNoTimedOne) {
    script("return tick 60000\nsignal coffee");
    m_engine.load_engine(engine_dir("scripted"), {});
    while (m_sched.step() == 0) {
    }
    EXPECT_THAT(calls(), testing::EndsWith("get_evfd -1\ntick\n"));
    for (int round = 0; round < 2; ++round) {
        m_engine.coffee("", "wake", {});
        EXPECT_TRUE(m_sched.handle_pending_events(0));
        EXPECT_FALSE(m_sched.handle_pending_events(0));
        EXPECT_EQ(calls(), "coffee dpaddr= func=wake args=\ntick\n");
    }
    Json::Value stats;
    m_sched.stats(stats);
    const Json::Value& tick = stats["tasks"]["tasks"][1];
    EXPECT_EQ(tick["name"], "Corvo Tick");
    EXPECT_GT(tick["when"].asUInt(), 30000u);
}

/** A TCP SYN in a frame of `size` bytes. */
test::Bytes make_frame(size_t size) {
    return test::tcp_frame({"10.0.0.1", "10.0.0.2", 1000, 80}, {.flags = test::TCP_SYN},
                           test::Bytes(size - 54));
}

class InjectTest : public LoaderTest {
 public:
    InjectTest() { bring_up(STATE_ACTIVE); }

    std::string capture(const std::vector<test::Bytes>& frames) {
        test::write_pcap(m_dir.file("in.pcap"), frames);
        return m_dir.file("in.pcap");
    }
    std::vector<Engine::PktInfo> push(const std::string& path) {
        std::vector<Engine::PktInfo> results;
        m_engine.push_pcap("dp0", path, false, 7, false, results);
        return results;
    }
};

TEST_F(InjectTest, ABatchGoesOutWhenItHoldsMoreThan9999Bytes) {
    const std::pair<std::vector<size_t>, std::vector<std::string>> cases[] = {
        {{}, {}},
        {{5000, 5000, 5000}, {"pkts=2 bytes=10000", "pkts=1 bytes=5000"}},
        {{5000, 4999, 60}, {"pkts=3 bytes=10059"}},
        {{5000, 5000}, {"pkts=2 bytes=10000"}},
        {{20000, 60, 20000, 60}, {"pkts=1 bytes=20000", "pkts=2 bytes=20060", "pkts=1 bytes=60"}},
    };
    for (const auto& [sizes, batches] : cases) {
        std::vector<test::Bytes> frames;
        for (const size_t size : sizes)
            frames.push_back(make_frame(size));
        std::vector<size_t> told;
        for (const Engine::PktInfo& info : push(capture(frames)))
            told.push_back(info.len);
        EXPECT_EQ(told, sizes) << "though nothing extended was asked for";
        std::string expected;
        for (const auto& batch : batches)
            expected += "push_pkts dpaddr=dp0 " + batch + " ns_id=7 extended=0\n";
        EXPECT_EQ(calls(), expected);
    }
}

TEST_F(InjectTest, AFrameThatIsPushedAloneGoesWhereTheCallerSaysAndBehindItsReset) {
    const test::Bytes frame = make_frame(60);
    Engine::PktInfo info;
    m_engine.push_raw_extended("dp1", std::string(frame.begin(), frame.end()), 3, true, true, info);
    EXPECT_EQ(calls(),
              "coffee dpaddr=dp1 func=dp.veld.sui_lut_remove_all_links args=\n"
              "coffee dpaddr=dp1 func=dp.ft.sui_ft_kill_all_flows args=\n"
              "push_pkts dpaddr=dp1 pkts=1 bytes=60 ns_id=3 extended=1\n");
}

TEST_F(InjectTest, AnEngineThatFailsEndsThePush) {
    script("fail coffee no such function\nfail push_pkts out of flows");
    std::vector<Engine::PktInfo> results(1);
    EXPECT_EQ(error_of([&] { m_engine.push_pcap("", "", true, 0, false, results); }), "no such function");
    EXPECT_EQ(results.size(), 1u) << "lost, though no file was read";
    const std::string path = capture(std::vector<test::Bytes>(4, make_frame(9999)));
    EXPECT_EQ(error_of([&] { push(path); }), "out of flows");
    EXPECT_EQ(calls(),
              "coffee dpaddr= func=dp.veld.sui_lut_remove_all_links args=\n"
              "push_pkts dpaddr=dp0 pkts=2 bytes=19998 ns_id=7 extended=0\n");
}

TEST_F(InjectTest, AFileWithoutFramesIsEmptyAndOneThatIsNoFileIsRefused) {
    EXPECT_THAT(push(m_dir.write("zero", "")), IsEmpty());
    for (const std::string& path :
         {m_dir.write("text", "this is no capture of anything"), m_dir.file("zero") + '\0' + "x"}) {
        const std::string text = "Unable to read '" + path + "' - not found or wrong format";
        EXPECT_EQ(error_of([&] { push(path); }), text.c_str());  // what a client sees ends at a NUL
    }
    EXPECT_EQ(calls(), "");
}

}  // namespace
}  // namespace corvo::server
