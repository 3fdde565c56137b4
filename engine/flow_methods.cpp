#include "flow_methods.h"

#include <json/reader.h>

#include <exception>
#include <string>
#include <utility>

#include "engine_error.h"
#include "flow_summary.h"

namespace corvo::engine {

extern const char openrpc_text[];  // generated from openrpc-flows.json by the build

namespace {

constexpr const char* COMPONENT = "flows";
constexpr uint32_t DEFAULT_LIMIT = 100;
constexpr uint32_t MAX_LIMIT = 1000;

/** Reads and checks the parameters of a request. Null members count as absent. */
class Parameters {
 public:
    Parameters(RpcCommand& command, const Json::Value& params, Json::Value& res)
        : m_command(command), m_params(params), m_res(res) {
        if (!params.isNull() && !params.isObject()) throw Error("internal parsing error");
    }

    bool has(const char* name) const { return !m_params[name].isNull(); }
    bool flag(const char* name, bool otherwise) {
        return has(name) ? member(name, RpcParser::TYPE_BOOL).asBool() : otherwise;
    }
    std::string text(const char* name) {
        return has(name) ? member(name, RpcParser::TYPE_STRING).asString() : std::string();
    }
    std::string needed_text(const char* name) { return member(name, RpcParser::TYPE_STRING).asString(); }
    uint32_t number(const char* name, RpcParser::field_type_e type) { return member(name, type).asUInt(); }
    std::string dpaddr() { return text("dpaddr"); }

    uint32_t limit() {
        if (!has("limit")) return DEFAULT_LIMIT;
        const uint32_t limit = number("limit", RpcParser::TYPE_UINT32);
        if (limit >= 1 && limit <= MAX_LIMIT) return limit;
        m_command.generate_parse_err(m_res, "field 'limit' is " + std::to_string(limit) +
                                                ", expecting 1 to " + std::to_string(MAX_LIMIT));
    }
    FlowQuery::sort_e sort() {
        if (!has("sort")) return FlowQuery::BY_BYTES;
        const std::string chosen =
            m_command.parse_choice<const char*>(m_params, "sort", {"bytes", "packets", "first"}, m_res);
        return chosen == "bytes"     ? FlowQuery::BY_BYTES
               : chosen == "packets" ? FlowQuery::BY_PACKETS
                                     : FlowQuery::BY_FIRST_PACKET;
    }
    FlowQuery query() {
        FlowQuery query;
        query.sort = sort();
        query.guess = flag("guess", true);
        query.protocol = text("protocol");
        if (has("address")) query.address = parse_address(text("address"));
        if (has("port")) query.port = static_cast<uint16_t>(number("port", RpcParser::TYPE_UINT16));
        if (has("ns_id")) query.ns_id = number("ns_id", RpcParser::TYPE_UINT32);
        return query;
    }

 private:
    const Json::Value& member(const char* name, RpcParser::field_type_e type) {
        m_command.check_field_type(m_params, name, type, m_res);
        return m_params[name];
    }

    RpcCommand& m_command;
    const Json::Value& m_params;
    Json::Value& m_res;
};

Json::Value summary(Parameters& params, Engine& engine) {
    const std::string dpaddr = params.dpaddr();
    const bool finish = params.flag("finish", false);
    const bool guess = params.flag("guess", true);
    NamedPath& path = engine.path_of(dpaddr);
    if (finish && path.data.kind() != DataPath::CAPTURE)
        throw Error("data path " + quoted(path.name) + " can't be finished, only that of a capture");
    return summarize(path, finish, guess);
}

Json::Value list(Parameters& params, Engine& engine) {
    const std::string dpaddr = params.dpaddr();
    const FlowQuery query = params.query();
    const uint32_t limit = params.limit();
    const std::string cursor = params.text("cursor");
    FlowLists& lists = engine.path_of(dpaddr).lists;
    return cursor.empty() ? lists.flows(query, limit) : lists.next("flows", cursor, limit);
}

Json::Value hosts(Parameters& params, Engine& engine) {
    const std::string dpaddr = params.dpaddr();
    const uint32_t limit = params.limit();
    const std::string cursor = params.text("cursor");
    FlowLists& lists = engine.path_of(dpaddr).lists;
    return cursor.empty() ? lists.hosts(limit) : lists.next("hosts", cursor, limit);
}

Json::Value open(Parameters& params, Engine& engine) {
    const std::string dpaddr = params.needed_text("dpaddr");
    Json::Value out;
    out["instance"] = Json::UInt64(engine.open(dpaddr, params.flag("answers", true)).instance);
    return out;
}

Json::Value close(Parameters& params, Engine& engine) {
    engine.close(params.needed_text("dpaddr"));
    return Json::objectValue;
}

Json::Value describe(Parameters&, Engine&) {
    Json::Value document;
    Json::Reader().parse(openrpc_text, document);
    return document;
}

struct Method {
    const char* name;
    Json::Value (*work)(Parameters&, Engine&);
};
constexpr Method METHODS[] = {
    {"summary", summary}, {"list", list},   {"hosts", hosts},
    {"open", open},       {"close", close}, {"describe", describe},
};

class FlowCommand : public RpcCommand {
 public:
    FlowCommand(const Method& method, Engine& engine)
        : RpcCommand(method.name), m_method(method), m_engine(engine) {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        try {
            Parameters parameters(*this, params, res);
            const Workers::Pause pause = m_engine.pause();
            res["result"] = m_method.work(parameters, m_engine);
        } catch (const std::exception& e) {  // includes failed checks, which count as failed commands
            generate_execute_err(res, e.what());
        }
        return CMD_OK;
    }

 private:
    const Method& m_method;
    Engine& m_engine;
};

}  // namespace

FlowMethods::FlowMethods(RpcCommandsTable* table, Engine& engine) : m_table(table) {
    if (!m_table) return;
    auto component = std::make_unique<RpcComponent>(COMPONENT);
    for (const Method& method : METHODS)
        component->add(std::make_unique<FlowCommand>(method, engine).release());
    m_table->load_component(component.release());
}

FlowMethods::~FlowMethods() {
    if (!m_table) return;
    const std::unique_ptr<RpcComponent> component(m_table->lookup_component(COMPONENT));
    if (component) m_table->unload_component(COMPONENT);
}

}  // namespace corvo::engine
