// Which records come of looks at flows: the pieces of `flows --ipfix` that are pure.
#include <gtest/gtest.h>

#include "client/failure.h"
#include "client/flows/flow_records.h"
#include "support/client.h"

namespace brumectl {
namespace {

using flows::FlowRecord;
using flows::Moment;
using test::parse;

constexpr double BEGIN_SEC = 1e9;

/** What is listed at a moment, and the records due: "packets to server/to client, seconds from start to end,
 * why". */
struct Step {
    const char* flows;  ///< packets, those to the server, first and last second
    double now_sec;
    const char* records;
    double clock_step_sec = 0;
};

Json::Value listed(const Step& step) {
    Json::Value page;
    page["flows"] = Json::Value(Json::arrayValue);
    for (const Json::Value& row : parse(step.flows)) {
        Json::Value flow = parse(R"({"client":"::1","server":"::2","transport":"udp","client_port":7})");
        flow["packets"] = flow["bytes"] = row[0];
        flow["packets_to_server"] = flow["bytes_to_server"] = row[1];
        flow["first_seen"] = BEGIN_SEC + step.clock_step_sec + row[2].asDouble();
        flow["last_seen"] = BEGIN_SEC + step.clock_step_sec + row[3].asDouble();
        page["flows"].append(flow);
    }
    return page;
}

std::string text_of(const std::vector<FlowRecord>& records) {
    std::string out;
    for (const FlowRecord& record : records)
        out += std::to_string(record.to_server.packets) + "/" + std::to_string(record.to_client.packets) +
               " " + std::to_string((record.end_ms - record.start_ms) / 1000) + " " +
               std::to_string(record.end) + ";";
    return out;
}

TEST(FlowRecords, EachTellsWhatWasAddedSinceThePreviousOne) {
    const std::vector<Step> CASES[] = {
        {{"[]", 0, ""},
         {"[[5,3,1,2]]", 2, ""},
         {"[[9,4,1,8]]", 9, ""},
         {"[]", 70, "4/5 7 1;"},
         {"[]", 71, ""}},
        // Of one that was there at the start, only the rest; nothing if there is none.
        {{"[[5,3,-9,-1]]", 0, ""}, {"[[8,4,-9,5]]", 6, ""}, {"[]", 7, "1/2 6 1;"}},
        {{"[[5,3,-9,-1]]", 0, ""}, {"[]", 7, ""}},
        // One that goes on is told each minute, if it does.
        {{"[]", 0, ""},
         {"[[5,3,1,2]]", 2, ""},
         {"[[9,4,1,60]]", 62, "4/5 59 2;"},
         {"[[9,4,1,60]]", 124, ""},
         {"[[10,5,1,130]]", 131, ""},
         {"[]", 132, "1/0 70 1;"}},
        // Another with the same ends: fewer packets, or a later start.
        {{"[]", 0, ""}, {"[[5,3,1,2]]", 2, ""}, {"[[2,1,3,4]]", 5, "3/2 1 1;"}, {"[]", 6, "1/1 1 1;"}},
        {{"[]", 0, ""}, {"[[5,3,1,1]]", 2, ""}, {"[[5,3,3,3]]", 5, "3/2 0 1;"}, {"[]", 6, "3/2 0 1;"}},
        // A clock that is set makes no other flow.
        {{"[]", 0, ""}, {"[[5,3,1,2]]", 2, ""}, {"[[9,4,1,8]]", 9, "", 5e8}, {"[]", 70, "4/5 7 1;", 5e8}},
    };
    for (const std::vector<Step>& steps : CASES) {
        const flows::FlowQuery query;
        flows::FlowRecords records(query);
        for (const Step& step : steps) {
            const double now_sec = BEGIN_SEC + step.clock_step_sec + step.now_sec;
            const Moment moment{now_sec, BEGIN_SEC + step.clock_step_sec};
            const auto ask = [&](const char* /*method*/, const Json::Value& /*params*/) {
                return listed(step);
            };
            EXPECT_EQ(text_of(records.look(ask, moment)), step.records)
                << step.flows << " at " << step.now_sec;
        }
        EXPECT_EQ(text_of(records.rest()), "");
    }
    const flows::FlowQuery query;
    flows::FlowRecords records(query);
    for (const Step& step : {Step{"[]", 0, ""}, Step{"[[5,3,1,2]]", 2, ""}})
        records.look([&](const char*, const Json::Value&) { return listed(step); },
                     {BEGIN_SEC + step.now_sec, BEGIN_SEC});
    EXPECT_EQ(text_of(records.rest()), "3/2 1 4;");
}

/** What `flow_lists::read` throws for a refused list while `status` is the daemon's. */
std::string refusal(const char* status) {
    const auto ask = [status](const std::string& method, const Json::Value&) {
        if (method == "flows.list") throw ErrorReply(-32603, "refused");
        return parse(method == "status" ? status : R"(["flows.list"])");
    };
    try {
        flow_lists::read(ask, flow_lists::FLOWS, Json::Value(), [](const Json::Value&) { return true; });
    } catch (const ErrorReply& e) {
        return e.what();
    }
    return "";
}

TEST(FlowLists, AnEngineThatEndedMeanwhileIsTheReason) {
    EXPECT_EQ(refusal(R"({"state":"deactivated"})"), "the engine isn't active");
    EXPECT_EQ(refusal(R"({"state":"not loaded"})"), "no engine is loaded");
    EXPECT_EQ(refusal(R"({"state":"activated"})"), "refused");
}

}  // namespace
}  // namespace brumectl
