#include "infra/corvo_rpc_command.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "infra/corvo_json.h"
#include "infra/scripted_command.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo {
namespace {

using Scripted = test::ScriptedCommand;
using test::make_component;

struct Outcome {
    uint32_t rc;
    std::string text;  ///< explanation

    bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Outcome& o) {
    return os << o.rc << " " << o.text;
}

Outcome run(const Scripted::Body& body, const std::string& params) {
    Scripted command("x", body);
    Json::Value value, res;
    EXPECT_TRUE(json::parse(params, value)) << params;
    const auto rc = static_cast<uint32_t>(command.run("x", value, res));
    return {rc, res.get("specific_err", "").asString()};
}

Scripted::Body field_is(RpcParser::field_type_e type) {
    return [type](Scripted& self, const Json::Value& params, Json::Value& res) {
        self.check_field_type(params, "f", type, res);
    };
}

TEST(RpcCommandsTable, KeysAreMatchedWholeTheLastOneLoadedWinsAndTheWildcardTakesTheRest) {
    RpcCommandsTable table;
    table.load_component(make_component("", {new Scripted("ping"), new Scripted("x")}));
    table.load_component(make_component("core", {new Scripted("ping")}));
    auto* last = new Scripted("x");
    table.load_component(make_component("", {last}));

    std::vector<std::string> keys{"kept"};
    table.query(keys);
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, (std::vector<std::string>{"core.ping", "kept", "ping", "x"}));
    EXPECT_EQ(table.lookup("x"), last);
    EXPECT_NE(table.lookup("core.ping"), table.lookup("ping"));
    EXPECT_EQ(table.lookup("core"), nullptr);

    auto* any = new Scripted("*");
    table.load_component(make_component("*", {any}));
    EXPECT_EQ(table.lookup("core"), any);
    EXPECT_NE(table.lookup("ping"), any);
}

TEST(RpcParser, FieldsAreCheckedByTypeAndRange) {
    using P = RpcParser;
    const std::string at = "error at offset: 5 - 'f' ";
    const std::tuple<const char*, P::field_type_e, std::string> cases[] = {
        {"5.0", P::TYPE_BYTE, ""},
        {"256", P::TYPE_BYTE, at + "has size bigger than uint8."},
        {"1.5", P::TYPE_BYTE, at + "is 'double', expecting 'byte'"},
        {"18446744073709551615", P::TYPE_UINT64, ""},
        {"18446744073709551616", P::TYPE_UINT64, at + "is 'double', expecting 'uint64'"},
        {"-2147483648", P::TYPE_INT, ""},
        {"-2147483649", P::TYPE_INT, at + "is 'int', expecting 'int'"},
        {"true", P::TYPE_DOUBLE, at + "is 'boolean', expecting 'double'"},
        {"0", P::TYPE_UDOUBLE, ""},
        {"-0.5", P::TYPE_UDOUBLE, at + "has negative value."},
        {"{}", P::TYPE_ARRAY, at + "is 'object', expecting 'array'"},
    };
    for (const auto& [value, type, error] : cases)
        EXPECT_EQ(run(field_is(type), std::string("{\"f\":") + value + "}"),
                  (Outcome{error.empty() ? CMD_OK : CMD_BAD_PARAMS, error}))
            << value << " as " << P().type_to_str(type);
}

TEST(RpcParser, AnArrayElementIsNamedByItsPosition) {
    auto check = [](Scripted& self, const Json::Value& params, Json::Value& res) {
        for (int i = 0; i < 4; ++i)
            self.check_field_type(params, i, RpcParser::TYPE_BYTE, res);
    };
    EXPECT_EQ(run(check, "[1,2,true,4]").text,
              "error at offset: 5 - 'array element: 3 ' is 'boolean', expecting 'byte'");
    EXPECT_EQ(run(check, "[1,2,3]").text, "field 'array element: 4 ' is missing");
}

TEST(RpcParser, AChoiceComesBackAsThePointerOfTheList) {
    static const char* const add = "add";
    const char* got = nullptr;
    auto choose = [&](Scripted& self, const Json::Value& params, Json::Value& res) {
        got = self.parse_choice<const char*>(params, "op", {add, "delete"}, res);
    };
    EXPECT_EQ(run(choose, R"({"op":"add"})").rc, CMD_OK);
    EXPECT_EQ(got, add);
    const Outcome refused{CMD_BAD_PARAMS, "field 'op' can only be one of ['add' ,'delete']"};
    for (const char* params : {R"({"op":"ad"})", R"({"op":"add\u0000"})", R"({"op":[]})", R"({"op":1})"}) {
        EXPECT_EQ(run(choose, params), refused) << params;
    }
    EXPECT_EQ(run(choose, "null"), (Outcome{CMD_BAD_PARAMS, "field 'op' is missing"}));
}

TEST(RpcParser, PathsFilesAndAddressesAreVerified) {
    test::TempDir dir;
    const std::string file = dir.write("f", "x"), hidden = dir.path() + std::string("\0x", 2);
    const std::string no_dir = "' is not a valid directory or does not exists";
    const std::tuple<void (RpcParser::*)(const std::string&, Json::Value&), std::string, std::string>
        cases[] = {
            {&RpcParser::validate_path, dir.path(), ""},
            {&RpcParser::validate_path, file, "path '" + file + no_dir},
            {&RpcParser::validate_path, hidden, "path '" + hidden + no_dir},
            {&RpcParser::validate_file, file, ""},
            {&RpcParser::validate_file, "/no/such", "file '/no/such' is not a valid file or does not exists"},
            {&RpcParser::validate_ip, "fe80::1", ""},
            {&RpcParser::validate_ip, "10.0.0", "invalid IPv4 / IPv6 address '10.0.0'"},
        };
    for (const auto& [validate, text, error] : cases) {
        auto check = [&, check = validate, &text = text](Scripted& self, const Json::Value&,
                                                         Json::Value& res) { (self.*check)(text, res); };
        EXPECT_EQ(run(check, "{}"), (Outcome{error.empty() ? CMD_OK : CMD_EXEC_FAILED, error})) << text;
    }
}

TEST(RpcCommand, FailuresBecomeItsResult) {
    const Scripted::Body internal = [](Scripted& self, const Json::Value&, Json::Value& res) {
        self.generate_internal_err(res, "odd");
    };
    EXPECT_EQ(run(internal, "{}"), (Outcome{CMD_INTERNAL_ERR, "odd"}));
    const Scripted::Body misuse = [](Scripted&, const Json::Value& params, Json::Value&) {
        static_cast<void>(params["f"]["g"]);
    };
    EXPECT_EQ(run(misuse, R"({"f":"text"})").rc, CMD_INTERNAL_ERR);
}

}  // namespace
}  // namespace corvo
