// Records of flows: what they say, and that they arrive whatever happens to the receiver, the disk or us.
#include "records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <sstream>

#include "engine.h"
#include "engine/pushed.h"
#include "engine/receivers.h"
#include "engine_error.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/temp_dir.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using test::error_of;
using test::fake_clock;
using test::g_now_ms;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<Json::Value> parse_lines(const std::string& text) {
    std::vector<Json::Value> out;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        out.push_back(test::parse(line));
    return out;
}

/** The last number if all count up from `first` without a gap, otherwise 0. */
uint64_t end_of_row(const std::vector<Json::Value>& records, uint64_t first = 1) {
    for (const Json::Value& record : records)
        if (record["number"].asUInt64() != first++) return 0;
    return first - 1;
}

test::Bytes datagram(uint16_t port) {
    return test::udp_frame({"10.0.0.1", "10.0.0.2", port, 9}, {1, 2, 3});
}

int64_t g_clock_set_us = 0;
uint64_t time_of_day() {
    return g_now_ms * 1000 + 1700000000000000 + static_cast<uint64_t>(g_clock_set_us);
}

class RecordsTest : public testing::Test {
 protected:
    RecordsTest() {
        test::take_notices();
        restart();
    }

    void restart() {
        engine.reset();
        engine.emplace(api::InitConfig(), options, fake_clock, time_of_day);
        engine->activate({max_flows, 1, false});
        engine->enable_collector("records");
    }
    void export_to_file() { engine->set_exporter({"", dir.file("out"), 0, api::EXPORTER_FILE}); }
    void export_to(uint16_t port) { engine->set_exporter({"127.0.0.1", "/in", port, api::EXPORTER_HTTP}); }
    void push(const std::vector<test::Bytes>& frames) {
        test::Pushed pushed(frames);
        engine->push("", pushed.pkts, false);
    }
    void push(const char* sample) { push(test::sample_flow(sample).frames); }
    /** Pushes flows of one packet each and lets them end. */
    void end_flows(uint16_t first_port, uint16_t count) {
        for (uint16_t i = 0; i < count; i++)
            push({datagram(static_cast<uint16_t>(first_port + i))});
        tick(60000);
    }
    void tick(uint64_t later_ms = 0) {
        g_now_ms += later_ms;
        std::string problem;
        engine->tick(problem);
        EXPECT_EQ(problem, "");
    }
    /** Runs until this many records have been sent in all, and this many more batches have failed. */
    void serve(uint64_t sent, uint64_t failed = 0) {
        failed += state()["failed"].asUInt64();
        for (int i = 0;
             i < 500 && (state()["sent"] < Json::UInt64{sent} || state()["failed"] < Json::UInt64{failed});
             i++) {
            tick(20);
            receiver.serve();
        }
    }
    std::vector<Json::Value> received() {
        std::string all;
        for (const std::string& body : receiver.bodies)
            all += body + "\n";
        return parse_lines(all);
    }
    /** The records in the file, a second later. */
    std::vector<Json::Value> out() {
        tick(1000);
        return parse_lines(test::read_file(dir.file("out")));
    }
    Json::Value state() { return engine->sample("records"); }

    test::TempDir dir;
    test::HttpReceiver receiver;
    uint32_t max_flows = 1000;
    Options options{4 << 20, "gate \"7\"", dir.file("spool"), 64 << 20};
    std::optional<Engine> engine;
};

TEST_F(RecordsTest, TellWhatTheListOfFlowsTellsAndWhenAndOfWhichFlow) {
    export_to_file();
    const auto& tls = test::sample_flow("tls").frames;
    push({tls.begin(), tls.end() - 3});  // it isn't closed
    push("dns");
    std::map<std::string, Json::Value> rows;
    const Json::Value page = engine->path_of("").lists.flows({}, 10);
    for (Json::Value row : page["flows"]) {
        row.removeMember("first_seen");
        row.removeMember("last_seen");
        rows[row["protocol"].asString()] = row;
    }
    const uint64_t seen = time_of_day();
    tick(61000);   // the query is idle
    tick(241000);  // the connection, too
    const auto records = out();
    ASSERT_EQ(end_of_row(records), 3u);
    for (Json::UInt i = 0; i < 3; i++) {
        Json::Value expected = rows[records[i]["protocol"].asString()];
        expected["number"] = i + 1;
        expected["sensor"] = "gate \"7\"";
        expected["run"] = state()["run"];
        expected["why"] = i == 0 ? "active" : "idle";
        expected["start"] = expected["end"] = Json::UInt64{seen};
        expected["flow"] = i == 2 ? 1 : i + 1;
        if (i == 2) {
            expected["since"] = Json::UInt64{seen};
            for (const char* counter : {"packets", "bytes", "packets_to_server", "bytes_to_server"})
                expected[counter] = 0;
        }
        EXPECT_EQ(records[i].toStyledString(), expected.toStyledString());
    }
}

TEST_F(RecordsTest, SayWhyAndAddUpToTheFlow) {
    max_flows = 2;
    restart();
    export_to_file();
    engine->set_collector_interval("records", 100000);
    const test::Path tcp{"10.0.0.1", "10.0.0.2", 5000, 80};
    for (int i = 0; i < 12; i++) {
        push({datagram(1)});
        tick(30000);
    }
    push({test::tcp_frame(tcp, {1, 1, test::TCP_RST}, {})});
    tick(11000);
    push({datagram(2)});
    tick(2000);
    push({datagram(3)});
    engine->deactivate();
    const auto records = out();
    std::string why;
    uint64_t bytes = 0;
    for (const Json::Value& record : records) {
        why += record["why"].asString() + " ";
        if (record["flow"].asUInt() == 1) bytes += record["bytes"].asUInt64();
    }
    EXPECT_EQ(why, "active active active ended evicted stopped stopped ");
    EXPECT_EQ(bytes, 12 * datagram(1).size());
    EXPECT_EQ(end_of_row(records), 7u);
}

TEST_F(RecordsTest, ArriveInOrderOnceAReceiverTakesThemHoweverItRefusedBefore) {
    export_to(receiver.port());
    end_flows(1000, 3);
    for (const int status : {500, 400, 302, 0}) {
        receiver.status = status;
        receiver.bodies.clear();
        serve(0, 1);
        tick(30000);
        EXPECT_THAT(state()["last_error"].asString(), HasSubstr(status ? std::to_string(status) : "reply"));
        ASSERT_FALSE(received().empty());
        EXPECT_EQ(received().back()["number"].asUInt(), 3u);
    }
    EXPECT_EQ(state()["sent"].asUInt(), 0u);
    EXPECT_THAT(test::take_notices(), ElementsAre("engine records.failed 2: HTTP status 500"));
    EXPECT_EQ(engine->health(true)["items"]["export_failures"]["value"].asUInt(), 4u);
    receiver.status = 204;
    receiver.bodies.clear();
    end_flows(2000, 2);
    serve(5);
    EXPECT_EQ(end_of_row(received()), 5u);
    EXPECT_THAT(receiver.heads.back(), HasSubstr("Content-Type: application/x-ndjson"));
    EXPECT_EQ(state()["waiting_bytes"].asUInt(), 0u);
    EXPECT_THAT(test::take_notices(), ElementsAre("engine records.back 1: records are sent again"));
}

TEST_F(RecordsTest, SurviveACrashAndARestart) {
    end_flows(1000, 5);
    const Json::Value run = state()["run"];
    // What a killed process leaves.
    std::filesystem::copy(dir.file("spool"), dir.file("left"));
    options.spool = dir.file("left");
    restart();
    EXPECT_NE(state()["run"], run);
    EXPECT_EQ(state()["next"].asUInt(), 6u);
    push({datagram(1)});
    for (int i = 0; i < 2; i++) {  // none is sent twice
        restart();                 // in an orderly manner
        export_to_file();
        EXPECT_EQ(end_of_row(out()), 6u);
    }
}

TEST_F(RecordsTest, PassOverRubbishInTheSpool) {
    end_flows(1000, 3);
    engine.reset();
    const std::string spool = dir.file("spool/");
    const std::string first = "spool/records-00000000000000000001.ndjson";
    std::string lines = test::read_file(dir.file(first));
    lines.insert(lines.find('\n') + 1, std::string(100, '\0') + "\n\n{\"number\":\n");
    dir.write(first, lines + "{\"number\":4,\"run\":\"cut");
    dir.write("spool/records-1.ndjson", "foreign\n");
    dir.write("spool/sent", "1 3\n");
    std::filesystem::create_directory(spool + "records-00000000000000000002.ndjson");
    std::filesystem::create_symlink("/dev/zero", spool + "records-00000000000000000003.ndjson");
    restart();
    export_to_file();
    end_flows(2000, 2);
    EXPECT_EQ(end_of_row(out()), 5u);
    EXPECT_EQ(state()["rubbish"].asUInt(), 4u);
    EXPECT_EQ(test::read_file(spool + "records-1.ndjson"), "foreign\n");
}

TEST_F(RecordsTest, GoOnInMemoryWhileTheDiskRefusesThem) {
    export_to(receiver.port());
    receiver.status = 500;
    {
        const test::ShortOf disk(RLIMIT_FSIZE, 10);
        end_flows(1000, 3);
        serve(0, 1);
        receiver.status = 200;
        receiver.bodies.clear();
        end_flows(2000, 2);
        serve(5);
    }
    end_flows(3000, 1);
    serve(6);
    EXPECT_THAT(test::take_notices(),
                ElementsAre("engine spool.failed 2: can't write to the spool: No space left on device",
                            HasSubstr("records.failed"), HasSubstr("records.back"),
                            "engine spool.back 1: records are spooled to disk again"));
    EXPECT_EQ(end_of_row(received()), 6u);
}

TEST_F(RecordsTest, NeedASpoolOfTheirOwn) {
    Engine other(api::InitConfig(), options, fake_clock);
    EXPECT_EQ(error_of<Error>([&] { other.enable_collector("records"); }),
              "the spool folder '" + options.spool + "' is in use by another process");
    EXPECT_EQ(other.collectors()["collectables"][3]["enabled"], false);
    for (const auto& [folder, text] : {std::pair(dir.write("file", ""), "Not a directory"),
                                       std::pair(dir.file("nil/nil"), "No such file or directory")}) {
        Options wrong;
        wrong.spool = folder;
        Engine engine(api::InitConfig(), wrong, fake_clock);
        EXPECT_THAT(error_of<Error>([&] { engine.enable_collector("records"); }), HasSubstr(text));
    }
}

TEST_F(RecordsTest, WithoutASpoolHaveAMomentToArriveAtTheEnd) {
    options.spool.clear();
    restart();
    export_to_file();
    end_flows(1000, 2);
    push({datagram(1)});
    engine.reset();
    EXPECT_EQ(end_of_row(parse_lines(test::read_file(dir.file("out")))), 3u);
}

TEST_F(RecordsTest, StopWhenDisabledButOnlyAfterAllWereSent) {
    end_flows(1000, 2);
    push({datagram(1)});
    engine->disable_collector("records");
    tick(60000);
    receiver.status = 500;
    export_to(receiver.port());
    serve(0, 1);
    export_to_file();  // gets what the other one refused
    EXPECT_EQ(end_of_row(out()), 2u);
    engine->enable_collector("records");
    end_flows(2000, 1);
    EXPECT_EQ(end_of_row(out()), 3u);
    EXPECT_EQ(state()["sent"].asUInt(), 3u);
}

TEST_F(RecordsTest, TellWhenTheTimeOfDayIsSet) {
    end_flows(1000, 1);
    g_clock_set_us = -3600000000;
    tick(1000);
    tick(1000);
    g_clock_set_us = 0;
    EXPECT_THAT(test::take_notices(),
                ElementsAre("engine records.clock 1: the time of day was set back by 3600 s, "
                            "which shows in the records"));
}

std::string lines_from(uint64_t first, uint64_t count) {
    std::string out;
    for (uint64_t number = first; number < first + count; number++)
        out += "{\"number\":" + std::to_string(number) + ",\"x\":\"" + std::string(80, 'x') + "\"}\n";
    return out;
}

TEST(Spool, GivesUpTheOldestForTheNewestAndCountsThem) {
    const test::TempDir dir;
    Spool spool(dir.path(), 80000);
    std::string lines;
    ASSERT_TRUE(spool.append(lines_from(1, 10), 11));
    ASSERT_TRUE(spool.read(500, lines));  // on its way while the others come
    for (uint64_t number = 11; number < 5000; number += 10)
        ASSERT_TRUE(spool.append(lines_from(number, 10), number + 10));
    EXPECT_LE(spool.waiting_bytes(), 80000u);
    EXPECT_GT(spool.waiting_bytes(), 60000u);
    spool.rewind();
    std::string all;
    while (spool.read(1000, lines)) {
        EXPECT_LE(lines.size(), 1000u);
        all += lines + "\n";
        spool.accept();
    }
    EXPECT_EQ(end_of_row(parse_lines(all), spool.dropped() + 1), 5000u);
    EXPECT_EQ(spool.waiting_bytes(), 0u);
}

TEST(RecordQueue, InMemoryGivesUpTheOldestToo) {
    RecordQueue queue("", 0, 1);
    for (uint64_t number = 1; number <= 60000; number++)
        queue.add(lines_from(number, 1), 0);
    EXPECT_LE(queue.waiting_bytes(), RecordQueue::MEMORY_BYTES);
    std::string lines;
    ASSERT_TRUE(queue.take(1, lines));
    EXPECT_EQ(lines + "\n", lines_from(queue.lost() + 1, 1));
    EXPECT_GT(queue.lost(), 10000u);
}

}  // namespace
}  // namespace corvo::engine
