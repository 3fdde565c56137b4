// The pieces of the words that stay: events, top and metrics.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/live/metrics_text.h"
#include "client/live/notification.h"
#include "client/live/top_view.h"
#include "client/live/traffic.h"
#include "support/client.h"

namespace brumectl {
namespace {

using test::parse;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(EventSequence, GapsAreCountedAndRepeatedEventsTakenOnce) {
    EventSequence sequence;
    EXPECT_EQ(sequence.missing_before(40), 0U) << "nothing is known of what came before the first";
    EXPECT_TRUE(sequence.take(40));
    EXPECT_EQ(sequence.missing_before(44), 3U);
    EXPECT_TRUE(sequence.take(44));
    EXPECT_FALSE(sequence.take(44));
    EXPECT_FALSE(sequence.take(41));
    sequence.restart();
    EXPECT_TRUE(sequence.take(1));
}

TEST(MetricsText, LabelsAreEscapedAndSeriesAreUnique) {
    LiveSample sample;
    sample.status = parse(R"({"state":"activated","uptime":"long","mem":7})");
    sample.protocols.value = parse(R"({"protocols":{"a\"\\\n":{"packets":3,"bytes":-1,"flows":[]}}})");
    sample.interfaces.value =
        parse(R"({"interfaces":[{"name":"e","packets":1},{"name":"e","packets":2},7]})");
    const std::string text = metrics_text(sample);
    EXPECT_THAT(text, HasSubstr("brumecpd_protocol_packets_total{protocol=\"a\\\"\\\\\\\\x0a\"} 3\n"));
    EXPECT_THAT(text, HasSubstr("brumecpd_protocol_bytes_total{protocol=\"a\\\"\\\\\\\\x0a\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("brumecpd_interface_packets_total{interface=\"e\"} 1\n"));
    EXPECT_THAT(text, Not(HasSubstr("{interface=\"e\"} 2")));
    EXPECT_THAT(text, Not(HasSubstr("uptime")));
}

TEST(Traffic, RatesComeFromTwoSamplesOfTheSameDaemon) {
    LiveSample before;
    before.taken_ms = 1000;
    before.status = parse(R"({"pid":1})");
    before.protocols.value =
        parse(R"({"protocols":{"A":{"packets":10,"bytes":100},"B":{"packets":9,"bytes":900}}})");
    LiveSample now = before;
    now.taken_ms = 3000;
    now.protocols.value =
        parse(R"({"protocols":{"A":{"packets":4,"bytes":100},"B":{"packets":1,"bytes":1000}},
                  "open":{"A":{"packets":10,"bytes":600},"C":{"packets":2,"bytes":1}}})");
    std::vector<Traffic> rows = protocol_traffic(now, &before);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].name, "A");
    EXPECT_DOUBLE_EQ(rows[0].packet_rate, 2);
    EXPECT_DOUBLE_EQ(rows[0].byte_rate, 300);
    EXPECT_DOUBLE_EQ(rows[1].packet_rate, 0) << "a count that went back";
    std::string orders;
    for (const TrafficOrder& order : traffic_orders()) {
        orders += std::string(" ") + order.key + ":";
        for (const Traffic& row : protocol_traffic(now, &before, order))
            orders += row.name;
    }
    EXPECT_EQ(orders, " r:ABC s:ACB b:BAC p:ACB f:ABC n:ABC");
    now.status["pid"] = 2;
    EXPECT_FALSE(protocol_traffic(now, &before)[0].has_rate);
}

TEST(TopView, EverySizeIsKeptWhateverTheSampleHolds) {
    LiveSample sample;
    sample.status = parse(R"({"state":"activated","version":{"name":"long name of an engine"}})");
    for (int i = 0; i < 50; ++i) {
        const std::string name = "protocol " + std::to_string(i);
        sample.protocols.value["protocols"][name] = parse(R"({"packets":18446744073709551615,"bytes":9e99})");
        sample.alerts.value.append(parse(R"({"name":"\u001b[2Jx","sev":"severe","count":3,"last_ts":5})"));
    }
    sample.listed.rows.assign(
        60, parse(R"({"client":"fd00::\u001b[2J","server":7,"sni":"\u001b[2Jx","bytes":9e99})"));
    const Terminal terminal(tmpfile());
    for (const Pane& pane : panes())
        for (size_t width : {20U, 40U, 80U, 100U, 250U})
            for (size_t height : {1U, 5U, 12U, 24U, 100U}) {
                sample.listed.list = pane.list;
                const TopFrame frame{.now = &sample, .pane = &pane, .width = width, .height = height};
                const std::vector<std::string> lines = top_lines(frame, terminal);
                EXPECT_EQ(lines.size(), height);
                for (const std::string& line : lines) {
                    EXPECT_EQ(line.find('\x1b'), std::string::npos);
                    EXPECT_LE(columns(line), width) << line;
                }
            }
}

TEST(TopView, TellsOnlyWhatIsKnown) {
    LiveSample before;
    before.taken_ms = 1000;
    before.status = parse(R"({"pid":1,"state":"activated","mem":{"total_mem":100,"free_mem":10}})");
    before.health.value = parse(R"({"state":"ok","items":{"memory":"ok"}})");
    LiveSample now = before;
    now.taken_ms = 3000;
    const auto shown = [&](const char* trouble) {
        const TopFrame frame{.now = &now, .before = &before, .trouble = trouble};
        std::string out;
        for (const std::string& line : top_lines(frame, Terminal(tmpfile())))
            out += line + "\n";
        return out;
    };
    EXPECT_THAT(shown(""),
                AllOf(HasSubstr("10.0 MiB free of 100.0 MiB\n"), HasSubstr("cpu -"), HasSubstr("health ok")));
    before.machine.cpu_sec = 1;
    now.machine = {.used_memory = 40 * MIB, .cpu_sec = 2};
    EXPECT_THAT(shown(""),
                AllOf(HasSubstr("40.0 MiB of 100.0 MiB used"), HasSubstr(" 40 %"), HasSubstr("cpu 50.0 %")));
    EXPECT_THAT(shown("gone"), AllOf(HasSubstr("no answer: gone"), HasSubstr("health unknown"),
                                     Not(HasSubstr("cpu")), Not(HasSubstr("health ok"))));
}

}  // namespace
}  // namespace brumectl
