#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>

#include "server/engine_fixture.h"
#include "tools/captures/capture_files.h"

namespace corvo::server {
namespace {

using test::error_of;
using testing::ElementsAre;
using testing::IsEmpty;

/** A TCP SYN in a frame of `size` bytes. */
test::Bytes make_frame(size_t size) {
    return test::tcp_frame({"10.0.0.1", "10.0.0.2", 1000, 80}, {.flags = test::TCP_SYN},
                           test::Bytes(size - 54));
}

class InjectTest : public test::EngineTest {
 public:
    InjectTest() { bring_up(Engine::STATE_ACTIVE); }

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

TEST_F(InjectTest, OnlyWhatTheEngineRecognisedIsHandedOver) {
    script("class push_pkts 4 a 4 a 0 none 4 a 9 b");
    std::map<std::string, int> counts;
    m_engine.push_pcap("", capture(std::vector<test::Bytes>(10, make_frame(4000))), false, 0, false,
                       [&](Engine::PktInfo&& info) { ++counts[info.protocol]; });
    EXPECT_THAT(counts, ElementsAre(std::pair("a", 6), std::pair("b", 2)));
}

TEST_F(InjectTest, AFrameThatIsPushedAloneGoesWhereTheCallerSays) {
    const test::Bytes frame = make_frame(60);
    Engine::PktInfo info;
    m_engine.push_raw_extended("dp1", std::string(frame.begin(), frame.end()), 3, false, true, info);
    EXPECT_EQ(calls(), "push_pkts dpaddr=dp1 pkts=1 bytes=60 ns_id=3 extended=1\n");
}

TEST_F(InjectTest, AFailingResetEndsThePush) {
    script("fail coffee no such function");
    std::vector<Engine::PktInfo> results(1);
    EXPECT_EQ(error_of([&] { m_engine.push_pcap("", "", true, 0, false, results); }), "no such function");
    EXPECT_EQ(results.size(), 1u) << "lost, though no file was read";
    EXPECT_EQ(calls(), "coffee dpaddr= func=dp.veld.sui_lut_remove_all_links args=\n");
}

TEST_F(InjectTest, AFileWithoutFramesIsEmptyAndOneThatIsNoFileIsRefused) {
    EXPECT_THAT(push(m_dir.write("zero", "")), IsEmpty());
    const std::string pipe = m_dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {m_dir.write("text", "this is no capture of anything"), m_dir.path(),
                                    m_dir.file("zero") + '\0' + "x", pipe}) {
        const std::string text = "Unable to read '" + path + "' - not found or wrong format";
        EXPECT_EQ(error_of([&] { push(path); }), text.c_str());  // what a client sees ends at a NUL
    }
    EXPECT_EQ(calls(), "");
}

TEST_F(InjectTest, AnEngineThatFailsEndsTheFile) {
    script("fail push_pkts out of flows");
    const std::string path = capture(std::vector<test::Bytes>(4, make_frame(9999)));
    EXPECT_EQ(error_of([&] { push(path); }), "out of flows");
    EXPECT_EQ(calls(), "push_pkts dpaddr=dp0 pkts=2 bytes=19998 ns_id=7 extended=0\n");
}

}  // namespace
}  // namespace corvo::server
