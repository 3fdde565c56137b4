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
    const struct {
        const char* value;
        P::field_type_e type;
        std::string error;
    } cases[] = {
        {"255", P::TYPE_BYTE, ""},
        {"5.0", P::TYPE_BYTE, ""},
        {"256", P::TYPE_BYTE, at + "has size bigger than uint8."},
        {"-1", P::TYPE_BYTE, at + "is 'int', expecting 'byte'"},
        {"1.5", P::TYPE_BYTE, at + "is 'double', expecting 'byte'"},
        {"65536", P::TYPE_UINT16, at + "has size bigger than uint16."},
        {"4294967295", P::TYPE_UINT32, ""},
        {"4294967296", P::TYPE_UINT32, at + "has size bigger than uint32."},
        {"\"a\"", P::TYPE_UINT32, at + "is 'string', expecting 'uint32'"},
        {"18446744073709551615", P::TYPE_UINT64, ""},
        {"18446744073709551616", P::TYPE_UINT64, at + "is 'double', expecting 'uint64'"},
        {"-2147483648", P::TYPE_INT, ""},
        {"-2147483649", P::TYPE_INT, at + "is 'int', expecting 'int'"},
        {"true", P::TYPE_DOUBLE, at + "is 'boolean', expecting 'double'"},
        {"0", P::TYPE_UDOUBLE, ""},
        {"-0.5", P::TYPE_UDOUBLE, at + "has negative value."},
        {"1", P::TYPE_BOOL, at + "is 'int', expecting 'bool'"},
        {"[]", P::TYPE_STRING, at + "is 'array', expecting 'string'"},
        {"{}", P::TYPE_ARRAY, at + "is 'object', expecting 'array'"},
        {"null", P::TYPE_STRING, "field 'f' is missing"},
    };
    for (const auto& c : cases) {
        const Outcome expected{c.error.empty() ? CMD_OK : CMD_BAD_PARAMS, c.error};
        EXPECT_EQ(run(field_is(c.type), std::string("{\"f\":") + c.value + "}"), expected)
            << c.value << " as " << P().type_to_str(c.type);
    }
}

TEST(RpcParser, AnArrayElementIsNamedByItsPosition) {
    auto check = [](Scripted& self, const Json::Value& params, Json::Value& res) {
        for (int i = 0; i < 4; ++i)
            self.check_field_type(params, i, RpcParser::TYPE_BYTE, res);
    };
    EXPECT_EQ(
        run(check, "[1,2,true,4]"),
        (Outcome{CMD_BAD_PARAMS, "error at offset: 5 - 'array element: 3 ' is 'boolean', expecting 'byte'"}));
    EXPECT_EQ(run(check, "[1,2,3]"), (Outcome{CMD_BAD_PARAMS, "field 'array element: 4 ' is missing"}));
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
    const std::string file = dir.write("f", "x");
    using Validate = void (RpcParser::*)(const std::string&, Json::Value&);
    const struct {
        Validate validate;
        std::string text;
        std::string error;
    } cases[] = {
        {&RpcParser::validate_path, dir.path(), ""},
        {&RpcParser::validate_path, file, "path '" + file + "' is not a valid directory or does not exists"},
        {&RpcParser::validate_file, file, ""},
        {&RpcParser::validate_file, "/no/such", "file '/no/such' is not a valid file or does not exists"},
        {&RpcParser::validate_ip, "10.0.0.1", ""},
        {&RpcParser::validate_ip, "fe80::1", ""},
        {&RpcParser::validate_ip, "10.0.0", "invalid IPv4 / IPv6 address '10.0.0'"},
    };
    for (const auto& c : cases) {
        auto check = [&](Scripted& self, const Json::Value&, Json::Value& res) {
            (self.*c.validate)(c.text, res);
        };
        EXPECT_EQ(run(check, "{}"), (Outcome{c.error.empty() ? CMD_OK : CMD_EXEC_FAILED, c.error})) << c.text;
    }
}

TEST(RpcCommand, FailuresBecomeItsResult) {
    const Scripted::Body internal = [](Scripted& self, const Json::Value&, Json::Value& res) {
        self.generate_internal_err(res, "odd");
    };
    EXPECT_EQ(run(internal, "{}"), (Outcome{CMD_INTERNAL_ERR, "odd"}));

    const Scripted::Body json_misuse = [](Scripted&, const Json::Value& params, Json::Value&) {
        static_cast<void>(params["f"]["g"]);
    };
    EXPECT_EQ(run(json_misuse, R"({"f":"text"})").rc, CMD_INTERNAL_ERR);

    EXPECT_THROW(run([](Scripted&, const Json::Value&, Json::Value&) { throw Exception("x"); }, "{}"),
                 Exception);
}

}  // namespace
}  // namespace corvo
