// What `check` finds in configurations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "client/check/config_check.h"
#include "client/check/daemon_user.h"
#include "client/text/method_table.h"
#include "infra/json/corvo_json.h"
#include "support/temp_dir.h"

namespace test {
namespace {

using namespace brumectl::check;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

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

using Found = testing::Matcher<std::string>;
/** A text, and what is found; empty: nothing. */
using Case = std::pair<std::string, std::string>;

TEST(Check, FindsWhatIsWrongWithTheTextAndItsShapeAndWhere) {
    const Case CASES[] = {
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
    };
    for (const auto& [text, found] : CASES)
        EXPECT_THAT(findings(text), found.empty() ? Found("") : StartsWith(found)) << text;
}

TEST(Check, FindsWrongMethodsAndParameters) {
    const std::string load = request("load", "null", 2) + ",";
    const std::string devmem = R"({"shm":{"type":"devmem","size":1,"addr":)";
    const std::string ready = load + request("activate", R"({"resources":{"max_flows":5.0}})", 3) + ",";
    const Case CASES[] = {
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
         "error activate: 'resources.dp_workers' is refused by a daemon in slave mode"},
        {ready + request("push_pcap", R"({"type":"buffer","reset":true})"),
         "error push_pcap: 'buffer' is missing with 'type' \"buffer\""},
        {load + request("coffee", R"({"func":"f","args":[1,2,3,4,5,6,7,8,9]})"),
         "error coffee: 'args' can hold"},
        {load + request("coffee", R"({"func":"f","args":[1,-2]})"), "error coffee: 'args[1]' must be from 0"},
        {request("notifications", R"({"cmd":"alerts","op":"add"})"),
         "error notifications: 'op' can only be one of \"show\", \"clear\" here"},
        {request("notifications", R"({"cmd":"log","op":"clear"})"), ""},
        {request("log", R"({"type":"verbosity","verbosity":{"cmd":"set"}})"),
         "error log: 'verbosity.level' is missing"},
    };
    for (const auto& [text, found] : CASES)
        EXPECT_THAT(findings("[" + text + "]"), found.empty() ? Found("") : HasSubstr(" " + found)) << text;
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
    const Settings standalone{.build = {.slave_mode = false}};
    const struct {
        std::vector<std::string> methods;
        size_t line;  ///< of the only finding, counting from 1 behind the bracket; 0: none
        const char* text;
    } ORDERS[] = {
        {{"load", "activate", "attach", "push_pcap", "deactivate", "unload", "unload", "load"}, 0, ""},
        {{"load", "push_pcap", "activate"},
         2,
         "is activated or activated (attached); by then it is deactivated"},
        {{"activate", "push_pcap"}, 1, "needs an engine that is deactivated; by then it is not loaded"},
        {{"load", "load", "activate"}, 2, "is not loaded; by then it is deactivated"},
        {{"load", "activate", "activate"}, 3, "is deactivated; by then it is activated"},
        {{"load", "activate", "attach", "unload", "load"},
         4,
         "not loaded or deactivated; by then it is activated (attached)"},
        {{"health", "load"}, 1, "by then it is not loaded"},
        {{"shutdown", "ping"}, 2, "a 'shutdown' stands before this"},
        {{"ping", "shutdown"}, 0, ""},
        {{"mt"}, 1, "is refused by every daemon"},
    };
    for (const auto& order : ORDERS) {
        const std::string found = findings(sequence(order.methods), standalone);
        SCOPED_TRACE(sequence(order.methods));
        EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), order.line == 0 ? 0 : 1) << found;
        const std::string place = order.line == 0 ? "" : std::to_string(order.line + 1) + ":";
        EXPECT_THAT(found, AllOf(StartsWith(place), HasSubstr(order.text)));
    }
    EXPECT_THAT(findings(sequence({"load", "activate", "attach"})),
                HasSubstr("attach: is refused by a daemon in slave mode"));
    const Settings bare_metal{.build = {.bare_metal = true}};
    EXPECT_THAT(findings("[" + request("load") + "]", bare_metal),
                StartsWith("1:2 error load: 'shm.type' is refused by a daemon for bare metal"));
}

TEST(Check, HasNothingAgainstTheExamplesThatSucceed) {
    for (const brumectl::Method& method : brumectl::MethodTable::get().methods()) {
        for (const Json::Value& example : (*method.document)["examples"]) {
            if (example.isMember("x-error")) continue;
            Json::Value params(Json::objectValue);
            for (const Json::Value& param : example["params"])
                params[param["name"].asString()] = param["value"];
            Settings settings;
            settings.build = brumectl::packaged_build();
            if (example.isMember("x-states"))
                settings.state = *brumectl::state_of(example["x-states"][0].asString());
            EXPECT_EQ(findings("[" + request(method.name, corvo::json::write(params)) + "]", settings), "")
                << method.name << ": " << example["name"].asString();
        }
    }
}

TEST(Check, TellsWhatKeepsTheDaemonsUserFromReadingAFile) {
    TempDir dir;
    const std::string file = dir.write("start.json", "[]");
    const DaemonUser owner{"", geteuid()};
    const DaemonUser member{"", geteuid() + 1, {getegid()}};
    const DaemonUser other{"", geteuid() + 1, {getegid() + 1}};
    const struct {
        const DaemonUser& user;
        mode_t file;
        mode_t folder;
        const char* hindrance;
    } CASES[] = {
        {owner, 0600, 0700, ""},
        {member, 0640, 0710, ""},
        {other, 0604, 0701, ""},
        {owner, 0077, 0700, geteuid() == 0 ? "" : "can't read "},
        {member, 0604, 0710, "can't read "},
        {other, 0640, 0701, "can't read "},
        {other, 0604, 0710, "can't enter "},
    };
    for (const auto& c : CASES) {
        ASSERT_EQ(chmod(file.c_str(), c.file) + chmod(dir.path().c_str(), c.folder), 0);
        EXPECT_THAT(c.user.hindrance(file), StartsWith(c.hindrance)) << c.file << " " << c.folder;
        EXPECT_EQ(c.user.hindrance(file).empty(), *c.hindrance == '\0');
    }
    EXPECT_FALSE(DaemonUser::of_process(getpid()));
    prctl(PR_SET_NAME, "brumecpd");
    EXPECT_EQ(DaemonUser::of_process(getpid())->uid, geteuid());
}

}  // namespace
}  // namespace test
