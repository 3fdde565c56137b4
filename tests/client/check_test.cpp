// Configurations as `check` judges them and as `run` plays them against a real daemon.
#include <gtest/gtest.h>

#include <algorithm>

#include "client/check/config_check.h"
#include "client/method_table.h"
#include "client/run_program.h"
#include "infra/corvo_json.h"
#include "support/daemon.h"
#include "support/temp_dir.h"

namespace test {
namespace {

using namespace brumectl::check;

/** "LINE:COLUMN severity text", a line each. */
std::string findings(const std::string& text, const Settings& settings = {}) {
    Report report(text);
    ConfigCheck(text, settings, report).run();
    std::string out;
    for (const Finding& finding : report.findings()) {
        Place place = report.place(finding.offset);
        out += std::to_string(place.line) + ":" + std::to_string(place.column) + " " +
               severity_word(finding.severity) + " " + finding.text + "\n";
    }
    return out;
}

/** A request without a fault of its own, ready to be put into an array. */
std::string request(const std::string& method, const std::string& params = "null", int id = 1) {
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"params":)" + params + R"(,"method":")" +
           method + "\"}";
}

struct Case {
    std::string text;
    std::string found;  ///< how the first finding begins; empty: there is none
};

void expect_first(const std::vector<Case>& cases, const Settings& settings = {}) {
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string found = findings(c.text, settings);
        EXPECT_EQ(c.found.empty() ? found : found.substr(0, c.found.size()), c.found);
    }
}

TEST(Check, FindsWhatIsWrongWithTheTextAndItsShapeAndWhere) {
    expect_first({
        {"// a comment\n[" + request("ping") + "] /* and\n another */ ", ""},
        {"[\n {\"a\": tru}]", "2:8 error Syntax error"},
        {"", "1:1 error "},
        {std::string(100000, '['), "1:1 error Values are nested too deeply"},
        {"{}", "1:1 error a configuration is an array"},
        {"[] []", "1:1 warning no requests\n1:4 warning ignored"},
        {"[null]", "1:2 error a request is an object"},
        {"[[" + request("ping") + ", 5]]",
         "1:" + std::to_string(request("ping").size() + 5) + " error a request"},
        {"[\n  {\"jsonrpc\":\"1.0\",\"id\":1,\"method\":\"ping\"}]", "2:14 error 'jsonrpc'"},
        {"[{\"jsonrpc\":\"2.0\",\"id\":1}]", "1:2 error 'method' is missing"},
        {"[{\"jsonrpc\":\"2.0\",\"id\":\"é\",\"parms\":{},\"method\":\"ping\"}]",
         "1:28 warning 'parms' is no member of a request, the daemon ignores it (did you mean 'params'?)"},
        {R"([{"jsonrpc":"2.0","method":"ping"}])", "1:2 warning without an 'id'"},
        {"[" + request("ping") + ",\n" + request("status") + "]",
         "2:23 warning another request has the id 1"},
    });
}

TEST(Check, FindsWrongMethodsAndParameters) {
    const std::string load = request("load", "null", 2) + ",";
    const std::string devmem = R"({"shm":{"type":"devmem","size":1,"addr":)";
    const std::string ready = load + request("activate", R"({"resources":{"max_flows":5.0}})", 3) + ",";
    const std::vector<Case> cases = {
        {request("pong"), "error 'pong' is no method (did you mean 'ping'?)"},
        {request("extender.hello"), "error 'extender.hello' is no method"},
        {load + request("extender.hello"), "warning 'extender.hello' is no method of the daemon"},
        {request("echo", "[5]"), "error echo: 'params' must be an object; anything else stops the daemon"},
        {request("echo"), "error echo: 'message' is missing"},
        {request("load", R"({"pth":"x"})"), "warning load: 'pth' is no parameter"},
        {request("load", R"({"path":5})"), "error load: 'path' must be a string, not a number"},
        {request("load", R"({"path":null,"shm":{"type":"auto"}})"), ""},
        {request("load", R"({"shm":{"type":"auto","size":"x"}})"),
         "warning load: 'shm.size' is not read here"},
        {request("load", devmem + R"(" 0x1F"}})"), ""},
        {request("load", devmem + R"("1fg"}})"), "error load: 'shm.addr' must be a hexadecimal"},
        {load + request("activate", R"({"resources":{"max_flows":4294967296}})"),
         "error activate: 'resources.max_flows' must be from 0 to 4294967295"},
        {load + request("activate", R"({"resources":{"max_flows":1.5}})"),
         "error activate: 'resources.max_flows'"},
        {load + request("activate", R"({"resources":{"max_flows":1,"dp_workers":null}})"),
         "error activate: the host system decides"},
        {ready + request("push_pcap", R"({"type":"buffer","reset":true})"),
         "error push_pcap: 'buffer' is missing with 'type' \"buffer\""},
        {load + request("coffee", R"({"func":"f","args":[1,2,3,4,5,6,7,8,9]})"),
         "error coffee: 'args' can hold"},
        {load + request("coffee", R"({"func":"f","args":[1,-2]})"), "error coffee: 'args[1]' must be from 0"},
        {request("notifications", R"({"cmd":"alerts","op":"add"})"),
         "error notifications: with 'cmd' \"alerts\""},
        {request("notifications", R"({"cmd":"log","op":"clear"})"), ""},
        {request("log", R"({"type":"verbosity","verbosity":{"cmd":"set"}})"),
         "error log: 'verbosity.level' is missing"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string found = findings("[" + c.text + "]");
        EXPECT_NE((found + "\n").find(c.found.empty() ? "\n" : " " + c.found), std::string::npos) << found;
        EXPECT_EQ(found.empty(), c.found.empty());
    }
}

/** The methods one after the other, each with parameters that are all right. */
std::string sequence(const std::vector<std::string>& methods) {
    static const std::map<std::string, std::string> PARAMS = {
        {"activate", R"({"resources":{"max_flows":5}})"},
        {"push_pcap", R"({"type":"filename","filename":"f","reset":true})"},
        {"health", R"({"cmd":"show"})"},
        {"attach", R"({"intf":"eth0"})"}};
    std::string text = "[";
    int id = 0;
    for (const std::string& method : methods) {
        auto params = PARAMS.find(method);
        text += ++id == 1 ? "\n" : ",\n";
        text += request(method, params == PARAMS.end() ? "null" : params->second, id);
    }
    return text + "]";
}

TEST(Check, FindsWhatTheEnginesStateRefusesOnceForEachSlip) {
    const Settings standalone{.target = {.slave_mode = false}};
    struct Order {
        std::vector<std::string> methods;
        size_t line;  ///< of the only finding, counting from 1 behind the bracket; 0: none
        const char* text;
    };
    const std::vector<Order> orders = {
        {{"load", "activate", "attach", "push_pcap", "deactivate", "unload", "unload", "load"}, 0, ""},
        {{"load", "push_pcap", "activate"}, 2, "needs an active engine"},
        {{"activate", "push_pcap"}, 1, "needs a loaded engine"},
        {{"load", "load", "activate"}, 2, "loaded already"},
        {{"load", "activate", "activate"}, 3, "active already"},
        {{"load", "activate", "attach", "unload", "load"}, 4, "'deactivate' must come first"},
        {{"health", "load"}, 1, "needs a loaded engine"},
        {{"shutdown", "ping"}, 2, "a 'shutdown' stands before this"},
        {{"ping", "shutdown"}, 0, ""},
        {{"mt"}, 1, "no memory tracer"},
    };
    for (const Order& order : orders) {
        const std::string found = findings(sequence(order.methods), standalone);
        SCOPED_TRACE(sequence(order.methods) + "\n" + found);
        EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), order.line == 0 ? 0 : 1);
        EXPECT_EQ(found.rfind(std::to_string(order.line + 1) + ":", 0),
                  order.line == 0 ? std::string::npos : 0);
        EXPECT_NE(found.find(order.text), std::string::npos);
    }
    EXPECT_NE(findings(sequence({"load", "activate", "attach"})).find("attach: refused where a host"),
              std::string::npos);
}

TEST(Check, HasNothingAgainstTheExamplesThatSucceed) {
    for (const brumectl::Method& method : brumectl::MethodTable::get().methods()) {
        for (const Json::Value& example : (*method.document)["examples"]) {
            if (example.isMember("x-error")) continue;
            Json::Value params(Json::objectValue);
            for (const Json::Value& param : example["params"])
                params[param["name"].asString()] = param["value"];
            Settings settings;
            settings.target.slave_mode = example["x-build"] != "standalone";
            if (example.isMember("x-states"))
                settings.state = *EngineStates::from_status(example["x-states"][0].asString());
            EXPECT_EQ(findings("[" + request(method.name, corvo::json::write(params)) + "]", settings), "")
                << method.name << ": " << example["name"].asString();
        }
    }
}

TEST(Check, TellsFilesApartAndEndsByWhatItFound) {
    TempDir dir;
    const std::string clean = dir.write("clean", "[" + request("ping") + "]");
    const std::string odd = R"([{"jsonrpc":"2.0","method":"ping"}])";
    const std::string odd_file = dir.write("odd", odd);
    EXPECT_EQ(brumectl({"check", clean, odd_file}).status, 0);
    Outcome strict = brumectl({"check", "--strict", clean, "-"}, {.input = odd});
    EXPECT_EQ(strict.status, 1);
    EXPECT_NE(strict.out.find("<stdin>:1:2: warning: "), std::string::npos) << strict.out;
    EXPECT_EQ(brumectl({"check", clean, dir.file("none")}).status, 1);
    EXPECT_EQ(brumectl({"check"}).status, 2);
    Json::Value list;
    ASSERT_TRUE(corvo::json::parse(brumectl({"--json", "check", odd_file}).out, list));
    EXPECT_EQ(list[0]["column"], 2);
}

TEST(Run, PlaysAConfigurationUntilARequestFails) {
    Daemon daemon({.engine_dir = INERT_ENGINE_DIR});
    const ProgramSetup setup{.socket = daemon.socket_path()};
    const std::string bad = daemon.dir().write(
        "bad", "[" + request("load", R"({"path":"/nosuch"})") + "," + request("status", "null", 2) + "]");
    Outcome stopped = brumectl({"run", bad}, setup);
    EXPECT_EQ(stopped.status, 1);
    EXPECT_NE(stopped.out.find("[1/2] load: failed: path '/nosuch' is not"), std::string::npos)
        << stopped.out;
    EXPECT_EQ(stopped.out.find("[2/2]"), std::string::npos);
    Outcome kept = brumectl({"run", "--keep-going", bad}, setup);
    EXPECT_EQ(kept.status, 1);
    EXPECT_NE(kept.out.find("[2/2] status: ok"), std::string::npos) << kept.out;
    const std::string list =
        daemon.dir().write("list", "[" + request("ping", "[1]") + "," + request("status", "null", 2) + "]");
    Outcome forced = brumectl({"run", "--force", "--keep-going", list}, setup);
    EXPECT_EQ(forced.status, 1) << forced.err;
    EXPECT_NE(forced.out.find("[1/2] ping: failed: params"), std::string::npos) << forced.out;
    EXPECT_NE(forced.out.find("[2/2] status: ok"), std::string::npos) << forced.out;
    Outcome json = brumectl({"--json", "run", bad}, setup);
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(parse(json.out)["error"]["code"], -32000) << json.out;

    const std::string good = daemon.dir().write("good", sequence({"load", "activate"}));
    EXPECT_EQ(brumectl({"run", good}, setup).status, 0);
    EXPECT_EQ(daemon.result("status")["state"], "activated");
    // Now the same is refused before anything is sent.
    Outcome again = brumectl({"run", good}, setup);
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("nothing was sent"), std::string::npos) << again.err;
    EXPECT_NE(brumectl({"run", "--force", good}, setup).out.find("already loaded"), std::string::npos);
}

}  // namespace
}  // namespace test
