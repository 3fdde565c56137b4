#include "exporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "engine/pushed.h"
#include "engine/receivers.h"
#include "engine_error.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo::engine {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

api::ExporterConfig http_to(uint16_t port, const std::string& server = "127.0.0.1") {
    return {server, "/in?box=1", port, api::EXPORTER_HTTP};
}
api::ExporterConfig file_to(const std::string& path) {
    return {"", path, 0, api::EXPORTER_FILE};
}

class ExporterTest : public testing::Test {
 protected:
    ExporterTest() { test::take_notices(); }

    uint64_t count(const char* what) const { return exporter.describe()[what].asUInt64(); }
    /** Runs until this many texts have been sent or have failed. */
    void run(uint64_t outcomes) {
        for (int i = 0; i < 1000 && count("sent") + count("failed") < outcomes; i++) {
            exporter.tick(now_ms);
            receiver.serve();
        }
    }

    Exporter exporter;
    test::HttpReceiver receiver;
    test::TempDir dir;
    uint64_t now_ms = 5;
};

TEST_F(ExporterTest, LooksNamesUpWithoutLeavingDescriptorsToOtherPrograms) {
    exporter.configure(http_to(receiver.port(), "localhost"));
    exporter.add("{}");
    exporter.tick(now_ms);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
        std::error_code gone;
        if (flags < 0 || flags & FD_CLOEXEC) continue;
        EXPECT_THAT(read_symlink(entry.path(), gone).string(), testing::Not(HasSubstr("socket:")));
    }
    run(1);
    EXPECT_THAT(receiver.bodies, ElementsAre("{}"));
}

TEST_F(ExporterTest, PostsOneTextAfterTheOther) {
    for (int round = 0; round < 2; round++) {
        receiver.bodies.clear();
        exporter.configure(http_to(receiver.port()));
        exporter.add("{\"a\":1}");
        exporter.add("{\"b\":2}");
        run(2);
        EXPECT_THAT(receiver.bodies, ElementsAre("{\"a\":1}", "{\"b\":2}"));
        EXPECT_THAT(receiver.heads.back(), HasSubstr("POST /in?box=1 HTTP/1.1"));
        EXPECT_THAT(receiver.heads.back(), HasSubstr("Content-Type: application/json"));
        EXPECT_EQ(count("sent"), 2u);
    }
    EXPECT_THAT(test::take_notices(), IsEmpty());
}

// tests/process/https_test.py has peers that answer.
TEST_F(ExporterTest, NeitherWaitsForAPeerThatLeavesTlsUnansweredNorSpeaksInTheClear) {
    exporter.configure({"127.0.0.1", "/in", receiver.port(), api::EXPORTER_HTTPS});
    exporter.add("{\"secret\":1}");
    for (int i = 0; i < 1000 && receiver.input().empty(); i++) {
        exporter.tick(now_ms);
        receiver.serve();
    }
    // Had a tick waited, it would have come back with a failure.
    for (int i = 0; i < 3; i++)
        EXPECT_EQ(exporter.tick(now_ms), 20u);
    EXPECT_EQ(count("failed"), 0u);
    receiver.serve();
    EXPECT_THAT(receiver.input(), testing::StartsWith("\x16\x03"));
    EXPECT_THAT(receiver.input(), testing::Not(HasSubstr("secret")));
}

TEST_F(ExporterTest, TriesAgainAfterGrowingPausesAndTellsOnceEachWay) {
    exporter.configure(http_to(receiver.port()));
    exporter.add("{}");
    receiver.status = 429;
    for (const uint64_t pause_ms : {1000u, 2000u, 4000u, 8000u, 16000u, 30000u, 30000u}) {
        run(count("failed") + 1);
        EXPECT_EQ(exporter.tick(now_ms), pause_ms);
        now_ms += pause_ms;
    }
    EXPECT_EQ(exporter.failures_in_a_row(), 7u);
    EXPECT_EQ(exporter.describe()["last_error"], "HTTP status 429");
    EXPECT_THAT(test::take_notices(), ElementsAre("engine export.failed 2: HTTP status 429"));
    receiver.status = 204;
    run(8);
    EXPECT_EQ(count("sent"), 1u);
    EXPECT_EQ(exporter.failures_in_a_row(), 0u);
    EXPECT_THAT(test::take_notices(), ElementsAre("engine export.back 1: samples are exported again"));
    // What the receiver rejects isn't sent again.
    exporter.add("bad");
    receiver.status = 400;
    run(9);
    EXPECT_EQ(count("dropped"), 1u);
    EXPECT_EQ(count("queued"), 0u);
}

TEST_F(ExporterTest, KeepsTheNewestWhileNobodyListens) {
    exporter.configure(http_to(test::HttpReceiver().port()));
    for (size_t i = 0; i < Exporter::MAX_QUEUED + 3; i++)
        exporter.add(std::to_string(i));
    EXPECT_EQ(count("queued"), Exporter::MAX_QUEUED);
    EXPECT_EQ(count("dropped"), 3u);
    run(1);
    EXPECT_EQ(count("failed"), 1u);
    exporter.add(std::string(Exporter::MAX_QUEUED_BYTES - 2, 'x'));
    EXPECT_EQ(count("queued"), 2u);
    exporter.add(std::string(Exporter::MAX_QUEUED_BYTES + 1, 'x'));
    EXPECT_EQ(count("queued"), 2u);

    const std::string under_way(900000, 'x');
    exporter.configure(http_to(receiver.port()));
    exporter.add(under_way);
    exporter.tick(now_ms);
    for (size_t i = 0; i < Exporter::MAX_QUEUED; i++)
        exporter.add(std::to_string(i));
    run(Exporter::MAX_QUEUED);
    ASSERT_EQ(receiver.bodies.size(), Exporter::MAX_QUEUED);
    EXPECT_TRUE(receiver.bodies[0] == under_way);
    EXPECT_EQ(receiver.bodies[1], "1");
}

TEST_F(ExporterTest, GivesUpWhatIsUnderWayWhenItGetsAnotherDestination) {
    exporter.configure(http_to(receiver.port(), "localhost"));
    exporter.add("{}");
    exporter.tick(now_ms);
    exporter.configure({"", "", 0, api::EXPORTER_NONE});
    exporter.add("{}");
    EXPECT_FALSE(exporter.wanted());
    EXPECT_EQ(exporter.describe().toStyledString(), "{\n\t\"type\" : \"none\"\n}\n");
}

TEST_F(ExporterTest, AppendsWholeLinesToAFileAlsoWhenItWasMovedAwayOrIsFull) {
    std::string path = dir.write("out", "before\n");
    exporter.configure(file_to(path));
    exporter.add("{1}");
    exporter.add("{2}");
    exporter.tick(now_ms);
    EXPECT_EQ(test::read_file(path), "before\n{1}\n{2}\n");
    std::rename(path.c_str(), dir.file("old").c_str());
    exporter.add("{3}");
    exporter.tick(now_ms);
    EXPECT_EQ(test::read_file(path), "{3}\n");

    exporter.add("{a long line}");
    {
        const test::ShortOf disk(RLIMIT_FSIZE, 10);
        exporter.tick(now_ms);
    }
    EXPECT_EQ(test::read_file(path), "{3}\n");
    EXPECT_EQ(count("failed"), 1u);
    exporter.tick(now_ms + 1000);
    EXPECT_EQ(test::read_file(path), "{3}\n{a long line}\n");
}

TEST_F(ExporterTest, RefusesImpossibleDestinationsAndKeepsItsOwn) {
    exporter.configure(file_to(dir.file("out")));
    const std::pair<api::ExporterConfig, const char*> cases[] = {
        {{"", "", 0, api::EXPORTER_KILN_CLOUD}, "can't export to 'kiln-cloud'"},
        {{"", "", 0, static_cast<api::exporter_type_e>(9)}, "no exporter of type 9"},
        {{"", "/", 80, api::EXPORTER_HTTP}, "server is ''"},
        {{"user@host", "/", 80, api::EXPORTER_HTTP}, "server is 'user@host'"},
        {{"host", "/", 0, api::EXPORTER_HTTPS}, "port is 0"},
        {{"host", "/a b", 80, api::EXPORTER_HTTP}, "path is '/a b'"},
        {{"host", "/\r\nX: y", 80, api::EXPORTER_HTTP}, "path is"},
        {file_to(""), "has no path"},
        {file_to(dir.path()), "Is a directory"},
        {file_to("/nil/nil"), "No such file"},
    };
    for (const auto& [config, text] : cases) {
        const auto configure = [&, config = config] { exporter.configure(config); };
        EXPECT_THAT(test::error_of<Error>(configure), HasSubstr(text));
        EXPECT_EQ(exporter.describe()["path"], dir.file("out")) << text;
    }
}

}  // namespace
}  // namespace corvo::engine
