// Every method, asked of the running daemon with an engine that the test scripts and whose calls it reads.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string_view>

#include "infra/corvo_json.h"
#include "infra/corvo_version.h"
#include "support/daemon.h"
#include "support/load_params.h"
#include "tools/captures/capture_files.h"

namespace {

using corvo::json::write;
using test::parse;
using testing::HasSubstr;

const test::Path PATH = {"10.0.0.1", "10.0.0.2", 1000, 80};

class CommandsTest : public testing::Test {
 protected:
    void activate() const {
        daemon.result("load", test::load_params());
        daemon.result("activate", parse(R"({"resources":{"max_flows":10}})"));
    }

    /** The engine's calls so far, without the ticks that come when they like. */
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::istringstream log(daemon.engine_calls());
        for (std::string line; std::getline(log, line);) {
            if (line != "tick") lines.push_back(line);
        }
        return lines;
    }
    std::string last_call() const {
        const std::vector<std::string> lines = calls();
        return lines.empty() ? "" : lines.back();
    }

    test::Daemon daemon{{.engine_dir = SCRIPTED_ENGINE_DIR}};
};

// Beside those that the document of the methods gives rise to.
TEST_F(CommandsTest, AWrongRequestIsRefusedWithTheTextOfItsFault) {
    struct Refusal {
        const char* method;
        const char* params;
        int code;
        const char* text;
    };
    constexpr int BAD_PARAMS = -32602;
    constexpr int FAILED = -32000;
    const Refusal refusals[] = {
        {"echo", R"({"message":5})", BAD_PARAMS, "'message' is 'int', expecting 'string'"},
        {"events", "null", FAILED, "field 'type' is missing"},
        {"load", R"({"cpaddr":true})", BAD_PARAMS, "'cpaddr' is 'boolean', expecting 'string'"},
        {"load", R"({"path":"/no%sdir"})", FAILED,
         "path '/no%sdir' is not a valid directory or does not exists"},
        {"load", R"({"shm":{"type":"devmem","size":1,"addr":"1fg"}})", FAILED,
         "'addr' is not a valid HEX value"},
        {"load", R"({"shm":{"type":"devmem","size":1,"addr":""}})", FAILED,
         "'addr' is not a valid HEX value"},
        {"load", R"({"shm":{"type":"devmem","size":1,"addr":"1\u0000"}})", FAILED,
         "'addr' is not a valid HEX value"},
        {"load", R"({"shm":{"type":"devmem","size":1,"addr":"10000000000000000"}})", FAILED,
         "'addr' is not a valid HEX value"},
        {"activate", R"({"resources":{"max_flows":-1.5}})", FAILED, "'max_flows' is 'double'"},
        {"coffee", R"({"func":"f","args":[1,-1]})", FAILED,
         "'array element: 2 ' is 'int', expecting 'uint32'"},
        {"collect", R"({"cmd":""})", FAILED,
         "can only be one of ['enable' ,'disable' ,'set_interval' ,'ls' ,'set_exporter' ,'show']"},
        {"log", R"({"type":"log","maxlines":1e10})", FAILED, "'maxlines' "},
        {"log", R"({"type":"verbosity","verbosity":{"cmd":"set","level":"WARN"}})", FAILED,
         "Bad verbosity level"},
        {"mt", R"({"depth":300})", FAILED, "Mem tracing is not built into this image"},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(std::string(refusal.method) + " " + refusal.params);
        const Json::Value reply = daemon.call(refusal.method, parse(refusal.params));
        EXPECT_EQ(reply["error"]["code"].asInt(), refusal.code);
        EXPECT_THAT(reply["error"]["specific_err"].asString(), HasSubstr(refusal.text));
    }
    EXPECT_TRUE(daemon.wait_for_log("Bad verbosity level"));
    EXPECT_TRUE(calls().empty());
}

TEST_F(CommandsTest, EchoWithoutMembersStopsTheServerInOrder) {
    EXPECT_TRUE(test::UnixClient(daemon.socket_path()).send(test::request_text("echo", parse("[]"))));
    const int status = daemon.wait_exit();
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("cause: unknown error"));
}

TEST_F(CommandsTest, AMessageIsEchoedIntoTheLogAsItIs) {
    EXPECT_EQ(daemon.result("echo", parse(R"({"message":"at 100% %n"})")), Json::Value(Json::objectValue));
    EXPECT_TRUE(daemon.wait_for_log("at 100% %n"));
    EXPECT_EQ(daemon.result("events", parse(R"({"type":"hog"})")), parse(R"({"events":[]})"));
}

TEST_F(CommandsTest, LoadHandsTheEngineItsConfiguration) {
    struct Case {
        const char* params;
        const char* call;
    };
    const Case cases[] = {
        {"null", "shm_type=1 shm_dev= shm_addr=0 shm_size=0 cp_addr=corvo-cp cmds=1"},
        {R"({"cpaddr":"x","shm":{"type":"auto","size":"none"}})",
         "shm_type=1 shm_dev= shm_addr=0 shm_size=0 cp_addr=x cmds=1"},
        {R"({"shm":{"type":"devmem","size":4096.0,"addr":"0x1f000000"}})",
         "shm_type=2 shm_dev=/dev/mem shm_addr=520093696 shm_size=4096 cp_addr=corvo-cp cmds=1"},
        {R"({"shm":{"type":"devmem","dev":"d","size":1,"addr":" 100000001"}})",
         "shm_type=2 shm_dev=d shm_addr=1 shm_size=1 cp_addr=corvo-cp cmds=1"},
    };
    for (const Case& load : cases) {
        SCOPED_TRACE(load.params);
        if (corvo::Version::g_bare_metal && std::string_view(load.call).starts_with("shm_type=1")) {
            EXPECT_EQ(daemon.failure("load", parse(load.params)),
                      "Auto SHM configuration is not supported on bare metal mode");
            continue;
        }
        EXPECT_EQ(daemon.result("load", parse(load.params)), Json::Value(Json::objectValue));
        EXPECT_THAT(calls(), testing::Contains(std::string("init ") + load.call));
        EXPECT_EQ(daemon.result("unload"), Json::Value(Json::objectValue));
        EXPECT_EQ(last_call(), "deinit");
    }
    EXPECT_EQ(daemon.result("unload"), Json::Value(Json::objectValue));
}

TEST_F(CommandsTest, ActivateStartsTheDataPathAndDeactivateStopsIt) {
    daemon.result("load", test::load_params());
    daemon.result("activate", parse(R"({"resources":{"max_flows":7,"writable_shm":true}})"));
    EXPECT_EQ(last_call(), "activate max_flows=7 dp_workers=1 writable_shm=1");
    daemon.result("deactivate");
    EXPECT_EQ(last_call(), "deactivate");
    daemon.script("fail activate 100%s of nothing\n");
    EXPECT_EQ(daemon.failure("activate", parse(R"({"resources":{"max_flows":7}})")), "100%s of nothing");
}

TEST_F(CommandsTest, InterfacesAndWorkersAreTheClientsToChooseUnlessAHostOwnsThem) {
    const auto activate_with = [](const std::string& workers) {
        return parse(R"({"resources":{"max_flows":1,"dp_workers":)" + workers + "}}");
    };
    daemon.result("load", test::load_params());
    if (corvo::Version::g_in_slave_mode) {
        EXPECT_EQ(daemon.failure("activate", activate_with("null")),
                  "'dp_workers' is controlled via DP API in slave mode");
        return;
    }
    for (const auto& [workers, handed_over] : {std::pair{"null", "1"}, {"128", "128"}}) {
        daemon.result("activate", activate_with(workers));
        EXPECT_EQ(last_call(),
                  std::string("activate max_flows=1 dp_workers=") + handed_over + " writable_shm=0");
        daemon.result("deactivate");
    }
    daemon.result("activate", activate_with("1"));
    const Json::Value loopback = parse(R"({"intf":"lo"})");
    daemon.result("attach", loopback);
    EXPECT_EQ(daemon.result("status")["attached"], parse(R"(["lo"])"));
    daemon.result("detach", loopback);
}

TEST_F(CommandsTest, AParameterReachesTheEngineAndItsAnswerTheClient) {
    struct Case {
        const char* method;
        const char* params;
        const char* call;
        const char* result;
    };
    const Case cases[] = {
        {"collect", R"({"cmd":"enable","component":"c"})", "collector_enable c", "{}"},
        {"collect", R"({"cmd":"disable","component":"c"})", "collector_disable c", "{}"},
        {"collect", R"({"cmd":"set_interval","component":"c"})", "collector_set_interval c 60000", "{}"},
        {"collect", R"({"cmd":"set_interval","component":"c","interval":4294967301})",
         "collector_set_interval c 5", "{}"},
        {"collect", R"({"cmd":"show","component":"c"})", "collector_get_sample c", R"({"flows":3})"},
        {"collect", R"({"cmd":"ls"})", "get_collectors",
         R"({"collect":{"collectables":["flows","memory"],"exporter":{"type":"none"}}})"},
        {"collect", R"({"cmd":"set_exporter","socket":{"type":"https","server":"s","port":443,"path":"/p"}})",
         "collect_set_exporter type=2 server=s port=443 path=/p", "{}"},
        {"collect", R"({"cmd":"set_exporter","socket":{"type":"file","port":70000,"path":"f"}})",
         "collect_set_exporter type=4 server= port=0 path=f", "{}"},
        {"collect", R"({"cmd":"set_exporter","socket":{"type":"none"}})",
         "collect_set_exporter type=5 server= port=0 path=", "{}"},
        {"health", R"({"cmd":"show","verbose":true})", "health_get verbose=1", R"({"healthy":true})"},
        {"health", R"({"cmd":"configure","json":{"a":1}})", R"(health_conf_set {"a":1})", "null"},
        {"health", R"({"cmd":"get_config"})", "health_conf_get", R"({"period":10})"},
        {"coffee", R"({"func":"f","dpaddr":"dp0","args":[1,2,3,4,5,6,7,4294967295]})",
         "coffee dpaddr=dp0 func=f args=1,2,3,4,5,6,7,4294967295", R"("done f")"},
        {"coffee", R"({"func":"f"})", "coffee dpaddr= func=f args=", R"("done f")"},
    };
    daemon.result("load", test::load_params());
    for (const Case& request : cases) {
        SCOPED_TRACE(std::string(request.method) + " " + request.params);
        EXPECT_EQ(write(daemon.result(request.method, parse(request.params))), request.result);
        EXPECT_EQ(last_call(), request.call);
    }
    EXPECT_EQ(daemon.failure("coffee", parse(R"({"func":"g","args":[1,2,3,4,5,6,7,8,9]})")),
              "COFFEE maximum argument count is 8");
    EXPECT_EQ(last_call(), "coffee dpaddr= func=f args=");

    daemon.script(R"(return get_collectors {"collectables":[]})");
    EXPECT_EQ(write(daemon.result("collect", parse(R"({"cmd":"ls"})"))), R"({"collect":{"exporter":null}})");
    daemon.script("return get_collectors 5");
    daemon.failure("collect", parse(R"({"cmd":"ls"})"));
}

TEST_F(CommandsTest, StatusAsksTheEngineOnlyWhileItIsActive) {
    Json::Value status = daemon.result("status");
    EXPECT_EQ(status["state"], "not loaded");
    EXPECT_EQ(status["mode"], "userspace");
    EXPECT_EQ(status["logfile"], daemon.log_path());
    EXPECT_EQ(status["pid"].asInt(), daemon.pid());
    utsname names = {};
    uname(&names);
    EXPECT_EQ(status["kernel"], names.release);
    const Json::Value& process = status["mem"]["process"];
    for (const char* which : {"virt_mem", "phy_mem"}) {
        EXPECT_GT(process[which]["current"].asUInt(), 0U);
        EXPECT_EQ(process[which]["max"], process[which]["current"]);
    }

    daemon.result("load", test::load_params());
    const size_t calls_before = calls().size();
    status = daemon.result("status");
    EXPECT_EQ(status["state"], "deactivated");
    EXPECT_EQ(write(status["attached"]) + write(status["dps"]), "[][]");
    EXPECT_FALSE(status.isMember("version"));
    EXPECT_EQ(calls().size(), calls_before);

    daemon.result("activate", parse(R"({"resources":{"max_flows":10}})"));
    status = daemon.result("status");
    EXPECT_EQ(status["state"], "activated");
    EXPECT_EQ(write(status["attached"]) + write(status["dps"]), R"([]["dp0"])");
    EXPECT_EQ(status["version"], parse(R"({"version":"scripted"})"));
    daemon.script("fail get_version no version\n");
    EXPECT_EQ(daemon.failure("status"), "no version");
}

TEST_F(CommandsTest, ACaptureIsAnsweredByCountsOrByPackets) {
    activate();
    daemon.script("class push_pkts 1 a 1 a 2 b 0 -\n");
    Json::Value params = parse(R"({"type":"filename","reset":false,"ns_id":9,"dpaddr":"dp0"})");
    const test::Bytes arp = test::ether_frame(test::ETHER_ARP, test::Bytes(46));
    const test::Bytes text = test::from_text("hello");
    const std::vector<test::Bytes> frames = {
        test::tcp_frame(PATH, {.flags = test::TCP_SYN}, text), test::udp_frame(PATH, text), arp,
        test::icmp_frame(PATH, 8, text), test::tcp_frame(PATH, {}, text)};
    const std::string capture = daemon.dir().file("capture.pcap");
    test::write_pcap(capture, frames);
    params["filename"] = capture;
    EXPECT_EQ(write(daemon.result("push_pcap", params)), R"({"a":2,"b":1,"total":3})");
    EXPECT_THAT(last_call(), testing::StartsWith("push_pkts dpaddr=dp0 pkts=4 "));
    EXPECT_THAT(last_call(), testing::EndsWith(" ns_id=9 extended=0"));

    params["extended"] = true;
    const Json::Value pkts = daemon.result("push_pcap", params)["pkts"];
    ASSERT_EQ(pkts.size(), 3U);
    EXPECT_EQ(write(pkts[0]),
              R"({"aging_sec":30,"attr":["syn","scripted"],"cat":[{"cat_id":1,"cat_val":2},)"
              R"({"cat_id":3,"cat_val":4}],"cls":1,"dst":"10.0.0.2:80","error":"non_ffrag","len":59,)"
              R"("protocol":"a","src":"10.0.0.1:1000","tph":["eth","a"],"transport":"tcp","visibility":2})");
    EXPECT_EQ(pkts[1]["transport"], "udp");
    EXPECT_EQ(pkts[2]["transport"], "ip");

    daemon.script("class push_pkts 7 total\n");
    params["extended"] = false;
    EXPECT_EQ(write(daemon.result("push_pcap", params)), R"({"total":4})");
    daemon.script("fail push_pkts out of flows\n");
    EXPECT_EQ(daemon.failure("push_pcap", params), "out of flows");

    const size_t calls_before = calls().size();
    test::write_pcap(capture, {arp});
    EXPECT_EQ(write(daemon.result("push_pcap", params)), R"({"total":0})");
    params["extended"] = true;
    EXPECT_EQ(write(daemon.result("push_pcap", params)), R"({"pkts":[]})");
    EXPECT_EQ(calls().size(), calls_before);
}

TEST_F(CommandsTest, FlowsAreResetBeforeTheFileIsLookedAt) {
    activate();
    const Json::Value params = parse(R"({"type":"filename","reset":true,"filename":"/no%sfile"})");
    EXPECT_EQ(daemon.failure("push_pcap", params), "Unable to read '/no%sfile' - not found or wrong format");
    const std::vector<std::string> lines = calls();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "coffee dpaddr= func=dp.veld.sui_lut_remove_all_links args=");
    EXPECT_EQ(lines.back(), "coffee dpaddr= func=dp.ft.sui_ft_kill_all_flows args=");
}

/** The most memory that a process has had at once, KiB. */
size_t peak_kib(pid_t pid) {
    const std::string status = test::read_file("/proc/" + std::to_string(pid) + "/status");
    return std::stoul(status.substr(status.find("VmHWM:") + 6));
}

TEST_F(CommandsTest, TheEndOfABigLogTakesNoMemoryForItsBeginning) {
    constexpr size_t LINES = 500'000;
    const Json::Value request = parse(R"({"type":"log","maxlines":2})");
    const auto last_lines = [&] { return write(daemon.result("log", request)["log"]); };
    last_lines();
    const size_t before_kib = peak_kib(daemon.pid());
    {
        std::ofstream log(daemon.log_path(), std::ios::app);
        const std::string line(127, 'x');
        for (size_t i = 0; i < LINES; i++)
            log << line << '\n';
        log << "last but one\nlast\n";
    }
    EXPECT_EQ(last_lines(), R"(["last but one","last"])");

    // A gap of zeros up to a gigabyte is a line that no buffer holds: what is behind it isn't looked for.
    ASSERT_EQ(truncate(daemon.log_path().c_str(), 1 << 30), 0);
    daemon.result("echo", parse(R"({"message":"unseen"})"));
    EXPECT_EQ(last_lines(), R"(["last but one","last"])");
    // A sanitizer keeps what was freed.
    if (!SANITIZED) {
        EXPECT_LT(peak_kib(daemon.pid()), before_kib + 4096);
    }
}

TEST_F(CommandsTest, LevelsAreSetForOneComponentOrForAll) {
    const auto verbosity = [this](const char* params) {
        Json::Value request;
        request["type"] = "verbosity";
        request["verbosity"] = parse(params);
        return daemon.result("log", request)["verbosity"];
    };
    verbosity(R"({"cmd":"set","level":"debug","comp":"new%s"})");
    EXPECT_TRUE(daemon.wait_for_log("'new%s' verbosity was changed to level debug"));
    verbosity(R"({"cmd":"set","level":"warn","comp":"default"})");
    Json::Value levels = verbosity(R"({"cmd":"get"})");
    EXPECT_EQ(levels["comp"], parse(R"({"default":"WARN","new%s":"DEBUG"})"));
    EXPECT_THAT(write(levels["comps"]), HasSubstr("\"new%s\""));
    EXPECT_THAT(write(levels["comps"]), HasSubstr("\"rpc\""));
    verbosity(R"({"cmd":"reset","level":"info"})");
    EXPECT_EQ(verbosity(R"({"cmd":"get"})")["comp"], parse(R"({"default":"INFO"})"));
    EXPECT_TRUE(
        daemon.wait_for_log("'default' verbosity was changed to level info, other components' "
                            "verbosity removed"));
}

}  // namespace
