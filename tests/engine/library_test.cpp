// The library as the daemon sees it: its entry points, and the methods that it brings along.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "engine/library.h"
#include "support/client.h"
#include "support/json_schema.h"
#include "tools/captures/sample_flows.h"

namespace {

using test::Pushed;
using testing::ElementsAre;
using testing::HasSubstr;

using EngineApi = test::EngineLibrary;

TEST_F(EngineApi, RefusesWhatComesOutOfOrder) {
    Pushed pushed(test::sample_flow("dns").frames);
    const char* uninitialised = "the engine isn't initialised";
    EXPECT_EQ(deinit(), uninitialised);
    EXPECT_EQ(activate(), uninitialised);
    EXPECT_EQ(push(pushed), uninitialised);
    EXPECT_EQ(init(), "");
    EXPECT_EQ(init(), "the engine is already initialised");
    EXPECT_EQ(push(pushed), "the data path isn't active");
    EXPECT_EQ(deactivate(), "the data path isn't active");
    EXPECT_EQ(activate(0), "max_flows is 0, expecting at least 1");
    EXPECT_EQ(activate(), "");
    EXPECT_EQ(activate(), "the data path is already active");
    EXPECT_EQ(push(pushed), "");
    EXPECT_EQ(push(pushed, "dp0"), "");
    EXPECT_EQ(push(pushed, "dp1"), "no data path 'dp1', expecting 'dp0', 'capture:NAME' or nothing");
    EXPECT_EQ(deactivate(), "");
    EXPECT_EQ(activate(), "");
    EXPECT_EQ(coffee("dp.ft.count"), "0");
    EXPECT_EQ(deinit(), "");
}

TEST_F(EngineApi, RunsItsInternalFunctionsByName) {
    init();
    EXPECT_EQ(coffee("dp.veld.sui_lut_remove_all_links"), "all links removed");
    EXPECT_EQ(coffee("dp.ft.sui_ft_kill_all_flows"), "0 flows removed");
    EXPECT_EQ(coffee("dp.ft.dump"), "");
    activate();
    Pushed pushed(test::sample_frames());
    push(pushed);
    EXPECT_EQ(coffee("dp.ft.count"), std::to_string(test::sample_flows().size()));
    std::string two = coffee("dp.ft.dump", {2});
    EXPECT_EQ(std::count(two.begin(), two.end(), '\n'), 2);
    EXPECT_EQ(coffee("dp.ft.dump", {10001}), "! the limit of dp.ft.dump is 10001, expecting at most 10000");
    EXPECT_EQ(coffee("dp.ft.dump", {1, 2}), "! dp.ft.dump takes at most 1 arguments, got 2");
    EXPECT_EQ(coffee("dp.ft.nil"), "! no function 'dp.ft.nil', try 'help'");
    EXPECT_EQ(coffee("help", {}, "x"), "! no data path 'x', expecting 'dp0', 'capture:NAME' or nothing");
    EXPECT_THAT(coffee("help"), HasSubstr("dp.ft.count"));
    EXPECT_EQ(coffee("dp.ft.sui_ft_kill_all_flows"),
              std::to_string(test::sample_flows().size()) + " flows removed");
}

TEST_F(EngineApi, TellsWhatItIs) {
    init();
    std::string err;
    Json::Value version;
    CALL(get_version)(version, err);
    EXPECT_TRUE(version["name"].isString() && version["version"].isString() && version["ndpi"].isString());
    std::vector<std::string> list;
    CALL(get_dps)(list, err);
    CALL(intf_get)(list, err);
    EXPECT_THAT(list, ElementsAre("dp0"));
    int fd = -1;
    CALL(get_evfd)(fd, err);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(err, "");
    EXPECT_EQ(failure(CALL(intf_attach), std::string("lo")), "the data path isn't active");
}

TEST_F(EngineApi, LeavesTheProcessWhenItIsClosed) {
    init();
    activate();
    Pushed pushed(test::sample_flow("tls").frames);
    push(pushed);
    EXPECT_EQ(pushed.pkts[0].protocol, "TLS");
    std::string err;
    // A transfer is under way, its host name still being looked up.
    CALL(collect_set_exporter)({"localhost", "/", 9, corvo::api::EXPORTER_HTTP}, err);
    CALL(collector_set_interval)("flows", 100, err);
    CALL(collector_enable)("flows", err);
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, 110);
    CALL(tick)(err);
    EXPECT_EQ(err, "");
    deinit();
    close_library();
    void* still_there = dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_EQ(still_there, nullptr);
}

class FlowMethods : public test::EngineLibrary {
 protected:
    FlowMethods() {
        init();
        activate();
    }
    void push_frames(const std::vector<test::Bytes>& frames, uint32_t ns_id = 0) {
        Pushed pushed(frames, ns_id);
        EXPECT_EQ(push(pushed, "capture:a", false), "");
    }
    /** What a method returns must be what its description says, unless it is an error's text. */
    Json::Value ask_path(const std::string& method, const std::string& params = "") {
        const Json::Value result =
            ask(method, R"({"dpaddr":"capture:a")" + (params.empty() ? "" : "," + params) + "}");
        const Json::Value document = ask("flows.describe");
        for (const Json::Value& described : document["methods"])
            EXPECT_TRUE(described["name"] != method || result.isString() ||
                        test::validates(described["result"]["schema"], result))
                << method << result.toStyledString();
        return result;
    }
    static std::string cursor_of(const Json::Value& page) {
        return R"("cursor":")" + page["cursor"].asString() + "\"";
    }
    /** The rows of all pages. */
    std::vector<Json::Value> all(const std::string& method, const std::string& params) {
        std::vector<Json::Value> rows;
        for (Json::Value page = ask_path(method, params);;
             page = ask_path(method, R"("limit":1000,)" + cursor_of(page))) {
            EXPECT_LT(page.toStyledString().size(), 120000u) << "more than a datagram's worth";
            for (const Json::Value& row : page[method == "flows.list" ? "flows" : "hosts"])
                rows.push_back(row);
            if (!page.isMember("cursor")) return rows;
        }
    }
};

TEST_F(FlowMethods, SumWhatEachFlowEndsAs) {
    push_frames(test::sample_frames());
    push_frames({test::tcp_frame({"10.0.0.1", "10.0.0.2", 50000, 22}, {}, test::Bytes(40, 0xee)),
                 test::udp_frame({"10.0.0.1", "10.0.0.2", 50000, 50001}, test::Bytes(40, 0xee)),
                 test::ether_frame(test::ETHER_ARP, test::Bytes(28))});
    Json::Value sums = ask_path("flows.summary");
    EXPECT_EQ(sums["protocols"]["unclassified"]["flows"], 2u);
    EXPECT_GE(sums["undecided"], 2u);
    sums = ask_path("flows.summary", R"("finish":true)");
    EXPECT_EQ(sums["complete"], true);
    EXPECT_EQ(sums["undecided"], 0u);
    EXPECT_EQ(sums["errors"]["not_ip"], 1u);
    EXPECT_EQ(sums["protocols"]["unclassified"]["packets"], 1u);
    EXPECT_EQ(sums["protocols"]["SSH"]["flows"], 2u);
    EXPECT_EQ(sums["protocols"]["SSH"]["guessed"], 1u);
    uint64_t packets = 1;
    for (const Json::Value& protocol : sums["protocols"])
        packets += protocol["packets"].asUInt64();
    EXPECT_EQ(sums["pushed"]["packets"], Json::UInt64{packets});
    sums = ask_path("flows.summary", R"("guess":false)");
    EXPECT_EQ(sums["protocols"]["unclassified"]["packets"], 2u);
    EXPECT_EQ(sums["protocols"]["SSH"]["flows"], 1u);
}

TEST_F(FlowMethods, TellOfEachFlowWhatIsKnown) {
    const auto& frames = test::sample_flow("tls").frames;
    push_frames(frames, 5);
    push_frames(test::TcpConversation({"10.0.0.1", "10.0.0.2", 40000, 12345})
                    .client(test::from_text("GET / HTTP/1.1\r\nHost: a.example.net\r\n\r\n"))
                    .close());
    push_frames(test::sample_flow("dns-ipv6-hop-by-hop").frames);
    const auto flow = [this](const char* filter) { return all("flows.list", filter).at(0); };
    const Json::Value tls = flow(R"("protocol":"tls")"), dns = flow(R"("protocol":"DNS")");
    const Json::Value known = test::parse(
        R"({"server_port":443,"client_port":40003,"transport":"tcp","ns_id":5,"protocol":"TLS","category":"Web",
            "confidence":"DPI","guessed":false,"sni":"secure.example.net","alpn":"http/1.1"})");
    for (const std::string& member : known.getMemberNames())
        EXPECT_EQ(tls[member].asString(), known[member].asString()) << member;
    for (const char* absent : {"host", "hassh_client", "vlan", "first_seen"})
        EXPECT_FALSE(tls.isMember(absent)) << absent;
    EXPECT_EQ(tls["packets"], Json::UInt64{frames.size()});
    EXPECT_EQ(tls["ja3c"].asString().size() + tls["ja3s"].asString().size(), 64u);
    EXPECT_GT(tls["packets_to_server"], 0u);
    for (const std::string counted : {"packets", "bytes"})
        EXPECT_LT(tls[counted + "_to_server"], tls[counted]);
    const Json::Value http = flow(R"("port":12345)");
    EXPECT_EQ(http["host"], "a.example.net");
    EXPECT_EQ(http["risks"][0], "Known Protocol on Non Standard Port");
    EXPECT_EQ(dns["host"], "six.example.net");
    EXPECT_THAT(dns["client"].asString(), HasSubstr("::"));

    Pushed live(test::sample_flow("dns").frames);
    push(live);
    const Json::Value live_page = ask("flows.list");
    ASSERT_TRUE(live_page["flows"].empty() || live_page["flows"][0]["last_seen"].asDouble() > 1.6e9)
        << "seconds since 1970";
}

TEST_F(FlowMethods, ListInOrderAndInPagesWhatTheFiltersLetThrough) {
    std::vector<test::Bytes> frames;
    for (uint16_t port = 1; port <= 600; port++)
        frames.push_back(test::udp_frame({"10.0.0.1", "10.0.1." + std::to_string(port % 3), port, 9},
                                         test::Bytes(port % 100u, 0x31)));
    push_frames(frames);
    push_frames({frames[0], frames[0]}, 7);
    EXPECT_LE(ask_path("flows.list")["flows"].size(), 100u);
    for (const std::string member : {"bytes", "packets"}) {
        const std::vector<Json::Value> rows = all("flows.list", R"("sort":")" + member + "\"");
        ASSERT_EQ(rows.size(), 601u);
        for (size_t i = 1; i < rows.size(); i++)
            EXPECT_GE(rows[i - 1][member].asUInt64(), rows[i][member].asUInt64()) << member << i;
    }
    EXPECT_EQ(all("flows.list", R"("sort":"first")")[599]["client_port"], 600u);
    const std::pair<const char*, size_t> filters[] = {{R"("ns_id":7)", 1},
                                                      {R"("port":9)", 601},
                                                      {R"("port":5)", 1},
                                                      {R"("address":"10.0.1.2")", 200},
                                                      {R"("address":"fd00::1")", 0},
                                                      {R"("protocol":"UNCLASSIFIED")", 600},
                                                      {R"("protocol":"nil")", 0},
                                                      {R"("port":9,"ns_id":7,"address":"10.0.0.1")", 1}};
    for (const auto& [filter, count] : filters)
        EXPECT_EQ(all("flows.list", filter).size(), count) << filter;
    const std::vector<Json::Value> hosts = all("flows.hosts", "");
    ASSERT_EQ(hosts.size(), 4u);
    EXPECT_EQ(hosts[0]["address"], "10.0.0.1");
    EXPECT_EQ(hosts[0]["flows"], 601u);
    EXPECT_EQ(hosts[0]["packets"], 602u);
    EXPECT_EQ(hosts[1]["flows"].asUInt() + hosts[2]["flows"].asUInt() + hosts[3]["flows"].asUInt(), 601u);
}

TEST_F(FlowMethods, GoOnWithAListWhileFlowsComeAndGo) {
    push_frames({test::sample_flow("tls").frames[0], test::sample_flow("dns").frames[0]});
    Json::Value page = ask_path("flows.list", R"("sort":"first","limit":1)");
    while (page["flows"].empty())  // cut off by the time that a call may take
        page = ask_path("flows.list", R"("limit":1,)" + cursor_of(page));
    EXPECT_EQ(page["total"], 2u);
    const std::string cursor = cursor_of(page);
    push_frames(test::sample_frames());
    EXPECT_EQ(all("flows.list", cursor).size(), 1u) << "those that came later aren't in it";
    EXPECT_EQ(all("flows.list", cursor)[0]["server_port"], 53u) << "an answer may get lost";
    coffee("dp.ft.sui_ft_kill_all_flows", {}, "capture:a");
    EXPECT_EQ(all("flows.list", cursor).size(), 0u);
    const std::string ended =
        "the list of cursor '" + page["cursor"].asString() + "' has ended, begin without a cursor";
    EXPECT_EQ(ask_path("flows.hosts", cursor), ended) << "of another kind";
    for (int i = 0; i < 4; i++)
        ask_path("flows.list");
    EXPECT_EQ(ask_path("flows.list", cursor), ended);
}

TEST_F(FlowMethods, TellWhatIsWrong) {
    push_frames(test::sample_flow("dns").frames);
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"flows.summary", "5", "internal parsing error"},
        {"flows.summary", R"({"dpaddr":5})", "error at offset: 10 - 'dpaddr' is 'int', expecting 'string'"},
        {"flows.summary", R"({"finish":1})", "error at offset: 10 - 'finish' is 'int', expecting 'bool'"},
        {"flows.summary", R"({"finish":true})", "data path 'dp0' can't be finished, only that of a capture"},
        {"flows.summary", R"({"dpaddr":"capture:b"})", "there is no data path 'capture:b': it comes with"},
        {"flows.summary", R"({"dpaddr":"dp1"})",
         "no data path 'dp1', expecting 'dp0', 'capture:NAME' or nothing"},
        {"flows.list", R"({"sort":"size"})", "field 'sort' can only be one of ['bytes' ,'packets' ,'first']"},
        {"flows.list", R"({"limit":0})", "field 'limit' is 0, expecting 1 to 1000"},
        {"flows.list", R"({"limit":1001})", "field 'limit' is 1001, expecting 1 to 1000"},
        {"flows.list", R"({"port":65536})", "error at offset: 8 - 'port' has size bigger than uint16."},
        {"flows.list", R"({"address":"10.0.0"})", "invalid IPv4 / IPv6 address '10.0.0'"},
        {"flows.list", R"({"address":"10.0.0.1\u0000"})", "invalid IPv4 / IPv6 address"},
        {"flows.list", R"({"cursor":"1"})", "the list of cursor '1' has ended, begin without a cursor"},
        {"flows.hosts", R"({"limit":"1"})", "error at offset: 9 - 'limit' is 'string', expecting 'uint32'"},
        {"flows.close", "{}", "field 'dpaddr' is missing"},
        {"flows.close", R"({"dpaddr":"dp0"})", "data path 'dp0' can't be closed, only that of a capture"},
    };
    for (const auto& [method, params, text] : cases)
        EXPECT_THAT(ask(method, params).asString(), HasSubstr(text)) << method << params;
    EXPECT_EQ(ask_path("flows.close"), Json::Value(Json::objectValue));
    EXPECT_THAT(ask_path("flows.close").asString(), HasSubstr("there is no data path 'capture:a'"));
    deactivate();
    EXPECT_EQ(ask("flows.summary"), "the data path isn't active");
}

TEST_F(FlowMethods, AreThereAndDescribedWhileTheEngineIsLoaded) {
    std::vector<std::string> methods;
    const Json::Value document = ask("flows.describe");
    for (const Json::Value& method : document["methods"])
        methods.push_back(method["name"].asString());
    EXPECT_THAT(loaded_methods(), testing::UnorderedElementsAreArray(methods));
    deinit();
    EXPECT_THAT(loaded_methods(), testing::IsEmpty());
}

}  // namespace
