#include "health.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine_error.h"
#include "support/client.h"
#include "support/error_of.h"

namespace corvo::engine {
namespace {

using test::parse;
using testing::HasSubstr;

TEST(Health, IsAsBadAsItsWorstItem) {
    Health health;
    health.configure(parse(R"({"flow_table":{"warn":50,"bad":60},"drops":{"warn":5,"bad":5}})"));
    const struct {
        uint64_t use, drops;
        const char* table;
        const char* lost;
        const char* all;
    } cases[] = {
        {49, 4, "ok", "ok", "ok"},
        {50, 4, "warn", "ok", "warn"},
        {59, 5, "warn", "bad", "bad"},
        {60, 0, "bad", "ok", "bad"},
    };
    for (const auto& c : cases) {
        Health::Values values = {c.use, 1, c.drops, 0, 0};
        Json::Value brief = health.report(values, false);
        EXPECT_EQ(brief["state"], c.all) << c.use;
        EXPECT_EQ(brief["items"]["flow_table"], c.table) << c.use;
        EXPECT_EQ(brief["items"]["drops"], c.lost) << c.use;
        Json::Value full = health.report(values, true);
        EXPECT_EQ(full["state"], c.all);
        EXPECT_EQ(full["items"]["flow_table"]["state"], c.table);
        EXPECT_EQ(full["items"]["flow_table"]["value"], Json::UInt64{c.use});
        EXPECT_EQ(full["items"]["flow_table"]["warn"], 50u);
    }
}

TEST(Health, RefusesAWrongConfigurationAsAWhole) {
    Health health;
    const Json::Value before = health.configuration();
    const struct {
        const char* wrong;
        const char* text;
    } cases[] = {
        {R"("disk":{"warn":1})", "unknown member 'disk'"},
        {R"("memory":5)", "member 'memory' must be an object"},
        {R"("memory":{"worse":1})", "unknown member 'memory.worse', expecting 'warn' or 'bad'"},
        {R"("memory":{"warn":"1"})", "member 'memory.warn' must be a whole number from 1"},
        {R"("memory":{"warn":true})", "member 'memory.warn' must be"},
        {R"("memory":{"warn":-1})", "member 'memory.warn' must be"},
        {R"("memory":{"warn":0})", "member 'memory.warn' must be"},
        {R"("memory":{"warn":1.5})", "member 'memory.warn' must be"},
        {R"("flow_table":{"bad":101})", "member 'flow_table.bad' must be a whole number from 1 to 100"},
        {R"("flow_table":{"warn":96})", "member 'flow_table.warn' (96) is above 'flow_table.bad' (95)"},
    };
    for (const auto& c : cases) {
        Json::Value conf = parse(std::string(R"({"drops":{"warn":7},)") + c.wrong + "}");
        EXPECT_THAT(test::error_of<Error>([&] { health.configure(conf); }), HasSubstr(c.text));
        EXPECT_EQ(health.configuration(), before) << c.wrong;
    }
    EXPECT_THROW(health.configure(Json::Value(Json::arrayValue)), Error);
    Json::Value changed = before;
    changed["drops"]["warn"] = Json::UInt64{7};
    for (const Json::Value& taken : {parse(R"({"drops":{"warn":7}})"), changed}) {
        health.configure(taken);
        EXPECT_EQ(health.configuration(), changed);
    }
}

TEST(Health, CountsWhatCameInTheLastMinute) {
    LastMinute recent;
    recent.update(1000, 0);
    recent.update(2000, 10);
    EXPECT_EQ(recent.sum(), 10u);
    recent.update(40000, 15);
    EXPECT_EQ(recent.sum(), 15u);
    recent.update(75000, 15);
    EXPECT_EQ(recent.sum(), 5u);
    recent.update(10000000, 16);
    EXPECT_EQ(recent.sum(), 1u);
    recent.update(20000000, 16);
    EXPECT_EQ(recent.sum(), 0u);
}

}  // namespace
}  // namespace corvo::engine
