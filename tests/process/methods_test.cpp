// docs/openrpc.json against the running daemon: what the document says of the methods is what clients get.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "infra/corvo_json.h"
#include "infra/corvo_version.h"
#include "support/daemon.h"
#include "support/json_schema.h"
#include "tools/captures/capture_files.h"
#include "utils/base64.h"

namespace {

using corvo::json::write;
using test::contains;
using test::parse;
using test::validates;
using testing::HasSubstr;

const Json::Value& document() {
    static const Json::Value DOCUMENT = parse(test::read_file(OPENRPC_DOCUMENT));
    return DOCUMENT;
}

/** The schema of an example's `params`: what is required there depends on its other members. */
Json::Value params_schema(const Json::Value& method, const Json::Value& params) {
    Json::Value schema;
    schema["type"] = "object";
    schema["additionalProperties"] = false;
    schema["properties"] = Json::objectValue;
    for (const Json::Value& param : method["params"]) {
        const std::string name = param["name"].asString();
        const Json::Value& when = param["x-required-when"];
        bool required = param["required"].asBool();
        for (const std::string& other : when.isNull() ? Json::Value::Members() : when.getMemberNames())
            required = required || contains(when[other], params[other]);
        schema["properties"][name] = param["schema"];
        if (required) schema["required"].append(name);
    }
    return schema;
}

Json::Value params_of(const Json::Value& example) {
    Json::Value params;
    for (const Json::Value& param : example["params"])
        params[param["name"].asString()] = param["value"];
    return params;
}

std::string title(const Json::Value& method, const Json::Value& example) {
    return method["name"].asString() + ", " + example["name"].asString();
}

/** Whether it tells of this build. */
bool applies(const Json::Value& example) {
    const Json::Value& build = example["x-build"];
    return build.isNull() || build == (corvo::Version::g_in_slave_mode ? "slave" : "standalone");
}

class MethodsTest : public testing::Test {
 protected:
    void SetUp() override {
        if (corvo::Version::g_bare_metal) GTEST_SKIP() << "the document loads engines without shared memory";
    }

    void enter(const std::string& state) {
        test::DaemonSetup setup;
        setup.engine_dir = SCRIPTED_ENGINE_DIR;
        setup.files = {{"script", "class push_pkts 7 HTTP\nreturn coffee 17\n"}, {"sample.pcap", sample()}};
        if (state == "activated (attached)") setup.args = {"-a", "--attach", "if0"};
        m_daemon = std::make_unique<test::Daemon>(setup);
        if (state == "deactivated" || state == "activated") m_daemon->result("load");
        if (state == "activated") m_daemon->result("activate", parse(R"({"resources":{"max_flows":10}})"));
        ASSERT_EQ(m_daemon->result("status")["state"], state);
    }

    /** The frame of the examples, twice. */
    std::string sample() const {
        for (const Json::Value& method : document()["methods"])
            for (const Json::Value& example : method["examples"]) {
                const Json::Value params = params_of(example);
                if (!params.isMember("buffer")) continue;
                const std::string text = b64_decode(params["buffer"].asString());
                const test::Bytes frame(text.begin(), text.end());
                test::write_pcap(m_dir.file("sample.pcap"), {frame, frame});
                return test::read_file(m_dir.file("sample.pcap"));
            }
        throw std::logic_error("no example has a frame");
    }

    Json::Value call(const Json::Value& method, const Json::Value& params) const {
        Json::Value reply = m_daemon->call(method["name"].asString(), params);
        const Json::Value& shapes = document()["components"]["schemas"];
        EXPECT_TRUE(validates(shapes[reply.isMember("error") ? "Failure" : "Success"], reply))
            << write(reply);
        if (reply.isMember("error"))
            EXPECT_TRUE(names_error(method, reply["error"])) << write(reply);
        else
            EXPECT_TRUE(validates(method["result"]["schema"], reply["result"])) << write(reply);
        return reply;
    }

    static bool names_error(const Json::Value& method, const Json::Value& error) {
        for (const Json::Value& reference : method["errors"]) {
            const std::string path = reference["$ref"].asString();
            const Json::Value& named = document()["components"]["errors"][path.substr(path.rfind('/') + 1)];
            if (named["code"] == error["code"] && named["message"] == error["message"]) return true;
        }
        return false;
    }

    void check_example(const Json::Value& method, const Json::Value& example,
                       const std::string& state) const {
        const Json::Value params = params_of(example);
        const Json::Value reply = call(method, params);
        if (example.isMember("x-states") && !contains(example["x-states"], state)) return;
        if (example.isMember("x-error")) {
            EXPECT_EQ(write(reply["error"]), write(example["x-error"]));
            return;
        }
        EXPECT_TRUE(params.isNull() || validates(params_schema(method, params), params));
        EXPECT_TRUE(validates(method["result"]["schema"], example["result"]["value"]));
        ASSERT_TRUE(reply.isMember("result")) << write(reply);
        if (!example["x-varies"].asBool()) {
            EXPECT_EQ(write(reply["result"]), write(example["result"]["value"]));
        }
    }

    /** `specific_err` of a request that must fail. */
    std::string refusal(const Json::Value& method, const Json::Value& params) const {
        SCOPED_TRACE(write(params));
        const Json::Value reply = call(method, params);
        EXPECT_TRUE(reply.isMember("error"));
        return reply["error"]["specific_err"].asString();
    }

    void spoil_members(const Json::Value& method, const Json::Value& root, Json::Value& part,
                       const Json::Value& schema);
    void spoil_value(const Json::Value& method, const Json::Value& root, const std::string& name,
                     Json::Value& value, const Json::Value& schema);

    using Words = std::map<std::string, std::set<std::string>>;  ///< by method and field
    const test::TempDir m_dir;
    std::unique_ptr<test::Daemon> m_daemon;
    Words m_documented;
    Words m_accepted;
};

/** The schema with what its variant that fits adds to it. */
Json::Value with_variant(Json::Value schema, const Json::Value& value) {
    for (const Json::Value& variant : schema["oneOf"]) {
        if (!validates(variant, value)) continue;
        for (const std::string& name : variant["properties"].getMemberNames())
            if (!schema["properties"].isMember(name))
                schema["properties"][name] = variant["properties"][name];
        for (const Json::Value& name : variant["required"])
            schema["required"].append(name);
    }
    return schema;
}

/** Leaves out or spoils each member of `part`, which is a place in `root`, one at a time. */
void MethodsTest::spoil_members(const Json::Value& method, const Json::Value& root, Json::Value& part,
                                const Json::Value& schema) {
    const Json::Value fitting = with_variant(schema, part);
    for (const std::string& name : part.getMemberNames()) {
        if (!fitting["properties"].isMember(name)) continue;  // what only the engine understands
        const Json::Value kept = part[name];
        part.removeMember(name);
        EXPECT_EQ(call(method, root)["error"]["specific_err"] == "field '" + name + "' is missing",
                  contains(fitting["required"], name))
            << write(root);
        spoil_value(method, root, name, part[name], fitting["properties"][name]);
        part[name] = kept;
        if (kept.isObject()) spoil_members(method, root, part[name], fitting["properties"][name]);
    }
}

void MethodsTest::spoil_value(const Json::Value& method, const Json::Value& root, const std::string& name,
                              Json::Value& value, const Json::Value& schema) {
    static const std::map<uint64_t, std::string> UNSIGNED = {
        {UINT8_MAX, "byte"}, {UINT16_MAX, "uint16"}, {UINT32_MAX, "uint32"}, {UINT64_MAX, "uint64"}};
    static const std::map<std::string, std::string> OTHERS = {
        {"boolean", "bool"}, {"string", "string"}, {"object", "object"}, {"array", "array"}};

    value = schema["type"] == "object" ? Json::Value(5) : Json::Value(Json::objectValue);
    const std::string text = refusal(method, root);
    const std::string list = "field '" + name + "' can only be one of ['";
    if (schema.isMember("enum") && text.starts_with(list)) {
        const std::string key = method["name"].asString() + " " + name;
        for (const Json::Value& word : schema["enum"])
            m_documented[key].insert(word.asString());
        std::istringstream listed(text.substr(text.find('[')));
        for (std::string gap, word; std::getline(listed, gap, '\'') && std::getline(listed, word, '\'');)
            m_accepted[key].insert(word);
        return;
    }
    const bool number = schema["type"] == "integer";
    const std::string type =
        number ? UNSIGNED.at(schema["maximum"].asUInt64()) : OTHERS.at(schema["type"].asString());
    EXPECT_THAT(text, HasSubstr("'" + name + "' is "));
    EXPECT_THAT(text, testing::EndsWith(", expecting '" + type + "'"));
    if (!number || type == "uint64") return;
    value = schema["maximum"].asUInt64() + 1;
    EXPECT_THAT(refusal(method, root), HasSubstr("'" + name + "' has size bigger than"));
}

TEST_F(MethodsTest, TheDocumentHoldsExactlyTheDaemonsMethods) {
    enter("not loaded");
    std::set<std::string> documented;
    for (const Json::Value& method : document()["methods"])
        EXPECT_TRUE(documented.insert(method["name"].asString()).second);
    std::set<std::string> present;
    for (const Json::Value& name : m_daemon->result("cmds"))
        present.insert(name.asString());
    EXPECT_EQ(documented, present);
}

TEST_F(MethodsTest, AMessageThatReachesNoMethodGetsTheDocumentedError) {
    enter("not loaded");
    for (const std::string& name : document()["x-errors"].getMemberNames()) {
        const Json::Value& request = document()["x-errors"][name]["request"];
        if (request.isNull()) continue;
        SCOPED_TRACE(name);
        const Json::Value error = parse(m_daemon->raw(request.asString()))["error"];
        const Json::Value& expected = document()["components"]["errors"][name];
        const std::string message = expected["message"].asString();
        EXPECT_EQ(error["code"], expected["code"]);
        EXPECT_THAT(error["message"].asString(), testing::StartsWith(message.substr(0, message.find('{'))));
        EXPECT_FALSE(error.isMember("specific_err"));
    }
}

TEST_F(MethodsTest, AFieldThatIsMissingOrOfTheWrongTypeIsRefusedAsTheDocumentSays) {
    enter("not loaded");
    for (const Json::Value& method : document()["methods"])
        for (const Json::Value& example : method["examples"]) {
            Json::Value params = params_of(example);
            if (!applies(example) || example.isMember("x-error") || params.isNull()) continue;
            SCOPED_TRACE(title(method, example));
            spoil_members(method, params, params, params_schema(method, params));
        }
    EXPECT_EQ(m_documented, m_accepted);
}

class MethodsInStateTest : public MethodsTest, public testing::WithParamInterface<const char*> {};

TEST_P(MethodsInStateTest, EveryExampleIsAnsweredAsTheDocumentSays) {
    const std::string state = GetParam();
    enter(state);
    for (const Json::Value& method : document()["methods"])
        for (const Json::Value& example : method["examples"]) {
            if (!applies(example)) continue;
            SCOPED_TRACE(title(method, example));
            check_example(method, example, state);
            // A method that moves the engine leaves a daemon that the next example can't use.
            const bool gone = method["name"] == "shutdown" && m_daemon->wait_exit() == 0;
            if (gone || m_daemon->result("status")["state"] != state) enter(state);
        }
}

INSTANTIATE_TEST_SUITE_P(EngineStates, MethodsInStateTest,
                         testing::Values("not loaded", "deactivated", "activated", "activated (attached)"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::erase_if(name, [](char c) { return !std::isalpha(c); });
                             return name;
                         });

}  // namespace
