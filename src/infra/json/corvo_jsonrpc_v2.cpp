#include "infra/json/corvo_jsonrpc_v2.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "infra/corvo_logger.h"
#include "infra/corvo_zip.h"
#include "infra/json/corvo_json.h"
#include "infra/json/corvo_json_reader.h"
#include "utils/base64.h"
#include "utils/clock.h"

namespace corvo {

namespace {

const std::string COMP = "jsonrpc";

constexpr size_t MIN_SIZE_TO_PACK = 4097;

enum error_code_e : int {
    PARSE_ERROR = -32700,
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INTERNAL_ERROR = -32603,
};

struct Failure {
    int code;
    const char* message;
    bool always_explained;  ///< otherwise only if the explanation is a non-empty array or object
};

// Indexed by the command's result, starting at CMD_BAD_PARAMS.
constexpr Failure FAILURES[] = {
    {-32602, "Bad paramters for method", true}, {-32000, "Failed To Execute Method", true},
    {-32603, "Internal Server Error", true},    {-32001, "Try again later", false},
    {-32002, "Work in progress", true},         {-32003, "No results for request", false},
};

/** Returns a member of a value that may not be an object. */
const Json::Value& member_of(const Json::Value& value, const char* name) {
    return value.isObject() ? value[name] : Json::Value::nullSingleton();
}

bool equals(const Json::Value& value, std::string_view text) {
    const char* begin = nullptr;
    const char* end = nullptr;
    return value.getString(&begin, &end) && text == std::string_view(begin, static_cast<size_t>(end - begin));
}

bool is_version_2(const Json::Value& msg) {
    return equals(member_of(msg, "jsonrpc"), "2.0");
}

bool converts_to_string(const Json::Value& value) {
    return !value.isArray() && !value.isObject();
}

/** What the command left under RESULT_TEXT; empty if it left a result. */
std::string_view text_of_result(const Json::Value& out) {
    const char* begin = nullptr;
    const char* end = nullptr;
    // Few results are null, so most aren't searched for a text.
    if (!member_of(out, "result").isNull() || !member_of(out, RESULT_TEXT).getString(&begin, &end)) return {};
    return {begin, static_cast<size_t>(end - begin)};
}

/** Moves a member out of an object; null if there is none. */
Json::Value take_member(Json::Value& value, const char* name) {
    Json::Value taken;
    if (value.isObject()) value.removeMember(name, &taken);
    return taken;
}

/** Appends the names. If `accept` is invalid, returns the reason and appends nothing. */
const char* read_encodings(const Json::Value& accept, std::vector<std::string>& encodings) {
    if (accept.isNull()) return nullptr;
    if (!accept.isArray()) return "Invalid 'accept' field type (should be array)";
    if (!std::all_of(accept.begin(), accept.end(), converts_to_string)) return "Invalid encoding format";
    encodings.reserve(encodings.size() + accept.size());
    for (const Json::Value& encoding : accept)
        encodings.push_back(encoding.asString());
    return nullptr;
}

/** The members of a request that a PlainReader can read. */
struct PlainRequest {
    std::string_view version;
    std::string_view method;
    Json::Value id;
    Json::Value params;
    Json::Value accept;

    /** False if anything is unusual. `msg` must outlive this object. */
    bool read(const std::string& msg) {
        json::PlainReader reader(msg.data(), msg.data() + msg.size());
        if (!reader.begin_object()) return false;
        unsigned seen = 0;
        for (bool more = true; more;) {
            std::string_view name;
            if (!reader.member_name(name) || !read_member(reader, name, seen) || !reader.end_of_member(more))
                return false;
        }
        return true;
    }

 private:
    enum member_e : unsigned { OTHER = 0, VERSION = 1, METHOD = 2, ID = 4, PARAMS = 8, ACCEPT = 16 };

    static member_e member_called(std::string_view name) {
        static constexpr std::pair<std::string_view, member_e> MEMBERS[] = {
            {"jsonrpc", VERSION}, {"id", ID}, {"method", METHOD}, {"params", PARAMS}, {"accept", ACCEPT}};
        for (const auto& [known, member] : MEMBERS)
            if (name == known) return member;
        return OTHER;
    }

    bool read_member(json::PlainReader& reader, std::string_view name, unsigned& seen) {
        const member_e member = member_called(name);
        if (seen & member) return false;
        seen |= member;
        switch (member) {
            case VERSION:
                return reader.read_string(version);
            case METHOD:
                return reader.read_string(method);
            case ID:
                return reader.read(id);
            case PARAMS:
                return reader.read(params);
            case ACCEPT:
                return reader.read(accept);
            default: {
                Json::Value ignored;
                return reader.read(ignored);
            }
        }
    }
};

std::string not_registered(const std::string& method) {
    return "Method '" + method + "' not registered";
}

void set_error(Json::Value& res, int code, const std::string& message) {
    Json::Value& error = res["error"];
    error["code"] = code;
    error["message"] = message;
}

}  // namespace

// --- ParsedObject

void ParsedObject::set_envelope(Json::Value& res) const {
    res["jsonrpc"] = "2.0";
    res["id"] = m_id;
}

void ParsedObject::execute(Json::Value& res) {
    Json::Value scratch;
    if (m_respond) set_envelope(res);
    _execute(m_respond ? res : scratch);
}

void ParsedObject::execute_text(std::string& out) {
    if (m_respond) return _execute_text(out);
    Json::Value scratch;
    _execute(scratch);
    out += "null";
}

void ParsedObject::_execute_text(std::string& out) {
    Json::Value res;
    execute(res);
    json::append(out, res);
}

// --- JsonRpcMethod

/** A call of a command. The table must outlive this object. */
class JsonRpcMethod : public ParsedObject {
 public:
    /** `first` means that nothing can have unloaded the command before this runs. */
    JsonRpcMethod(Json::Value id, std::string method, RpcCommand* command, Json::Value params,
                  std::vector<std::string> encodings, const RpcCommandsTable& table, bool first);

 protected:
    void _execute(Json::Value& res) override;
    void _execute_text(std::string& out) override;

 private:
    struct Outcome;

    Outcome perform();
    std::string pack(std::string_view plain) const;
    void describe_success(Outcome& outcome, Json::Value& res) const;
    void describe_failure(const Outcome& outcome, Json::Value& res) const;

    std::string m_method;
    RpcCommand* m_command;
    Json::Value m_params;
    std::vector<std::string> m_encodings;
    const RpcCommandsTable& m_table;
    bool m_first;
};

struct JsonRpcMethod::Outcome {
    uint32_t rc = CMD_OK;
    uint64_t ms = 0;
    Json::Value out;      ///< written by the command
    std::string written;  ///< text of the result; empty if the command left that
    std::string packed;   ///< its compressed form in base64; empty if the plain one is to be sent

    /** Text of the result, including the newline. */
    std::string_view plain() const { return written.empty() ? text_of_result(out) : written; }
};

JsonRpcMethod::JsonRpcMethod(Json::Value id, std::string method, RpcCommand* command, Json::Value params,
                             std::vector<std::string> encodings, const RpcCommandsTable& table, bool first)
    : ParsedObject(std::move(id), false),
      m_method(std::move(method)),
      m_command(command),
      m_params(std::move(params)),
      m_encodings(std::move(encodings)),
      m_table(table),
      m_first(first) {}

JsonRpcMethod::Outcome JsonRpcMethod::perform() {
    Outcome outcome;
    // An earlier element of the same batch may have unloaded the engine library that provided the command.
    if (!m_first && !RpcTableView::has(m_table, m_command, m_method)) m_command = m_table.lookup(m_method);
    if (!m_command) return outcome;

    const uint64_t start_ms = monotonic_ms();
    outcome.rc = static_cast<uint32_t>(m_command->run(m_method, m_params, outcome.out));
    if (outcome.rc != CMD_OK) return outcome;
    outcome.ms = monotonic_ms() - start_ms;
    if (!respond()) return outcome;
    if (text_of_result(outcome.out).empty())
        outcome.written = json::write_line(member_of(outcome.out, "result"));
    outcome.packed = pack(outcome.plain());
    return outcome;
}

std::string JsonRpcMethod::pack(std::string_view plain) const {
    if (plain.size() < MIN_SIZE_TO_PACK) return {};
    if (std::find(m_encodings.begin(), m_encodings.end(), "lz4") == m_encodings.end()) return {};
    std::string block;
    if (corvo_zip_zip(std::string(plain), block, /*header=*/false) > 0) return b64_encode(block);
    CORVO_LOG(ERROR, COMP, "Failed to compress IPC response (CP)");
    return {};
}

void JsonRpcMethod::_execute(Json::Value& res) {
    Outcome outcome = perform();
    if (m_command && outcome.rc == CMD_OK) {
        describe_success(outcome, res);
    } else {
        describe_failure(outcome, res);
    }
}

void JsonRpcMethod::_execute_text(std::string& out) {
    Outcome outcome = perform();
    if (!m_command || outcome.rc != CMD_OK) {
        Json::Value res;
        set_envelope(res);
        describe_failure(outcome, res);
        json::append(out, res);
        return;
    }
    // The result has already been written as text and is the last member in order, so the rest is put
    // around it.
    const bool packed = !outcome.packed.empty();
    const std::string_view plain = outcome.plain();
    out.reserve(out.size() + (packed ? outcome.packed.size() : plain.size()) + 128);
    out.append("{\"fmt\":{\"size\":").append(std::to_string(static_cast<Json::UInt>(plain.size())));
    out.append(packed ? ",\"type\":\"lz4\"},\"id\":" : ",\"type\":\"plain\"},\"id\":");
    json::append(out, id());
    out.append(",\"jsonrpc\":\"2.0\",\"ms\":").append(std::to_string(outcome.ms)).append(",\"result\":");
    if (packed) {
        out.append("\"").append(outcome.packed).append("\"}");
    } else {
        out.append(plain.substr(0, plain.size() - 1)).append("}");
    }
}

void JsonRpcMethod::describe_success(Outcome& outcome, Json::Value& res) const {
    res["fmt"]["size"] = static_cast<Json::UInt>(outcome.plain().size());
    res["ms"] = static_cast<Json::UInt64>(outcome.ms);
    if (!outcome.packed.empty()) {
        res["result"] = outcome.packed;
        res["fmt"]["type"] = "lz4";
    } else {
        Json::Value& result = res["result"] = take_member(outcome.out, "result");
        if (result.isNull()) json::parse(std::string(text_of_result(outcome.out)), result);
        res["fmt"]["type"] = "plain";
    }
}

void JsonRpcMethod::describe_failure(const Outcome& outcome, Json::Value& res) const {
    if (!m_command) return set_error(res, METHOD_NOT_FOUND, not_registered(m_method));
    if (outcome.rc > std::size(FAILURES)) return;
    const Failure& failure = FAILURES[outcome.rc - 1];
    set_error(res, failure.code, failure.message);
    const Json::Value& explanation = member_of(outcome.out, "specific_err");
    if (failure.always_explained || explanation.size() > 0) res["error"]["specific_err"] = explanation;
}

// --- JsonRpcError

class JsonRpcError : public ParsedObject {
 public:
    JsonRpcError(Json::Value id, int code, std::string message, bool force = false)
        : ParsedObject(std::move(id), force), m_code(code), m_message(std::move(message)) {}

 protected:
    void _execute(Json::Value& res) override {
        if (respond()) set_error(res, m_code, m_message);
    }

 private:
    int m_code;
    std::string m_message;
};

// --- ReqParser

std::string ReqParser::execute() {
    Objects objects;
    parse(objects);

    std::string reply;
    if (objects.empty()) {
        reply = "null";
    } else if (objects.size() == 1) {
        objects.front()->execute_text(reply);
    } else {
        char separator = '[';
        for (auto& object : objects) {
            reply += separator;
            separator = ',';
            object->execute_text(reply);
            object.reset();
        }
        reply += ']';
    }
    reply += '\n';
    return reply;
}

void ReqParser::parse(Objects& out) {
    if (parse_plain_request(out)) return;
    Json::Value root;
    std::string error;
    if (!json::parse(m_msg, root, &error)) {
        out.push_back(
            std::make_unique<JsonRpcError>(Json::Value(), PARSE_ERROR, "Bad JSON Format: " + error, true));
        return;
    }
    if (!root.isArray()) return parse_single_request(root, out);
    out.reserve(out.size() + root.size());
    for (Json::Value& request : root)
        parse_single_request(request, out);
}

// Takes a typical request apart without building a value for the whole. Anything unusual or wrong is left to
// the general path, which decides what it means.
bool ReqParser::parse_plain_request(Objects& out) {
    PlainRequest request;
    if (!request.read(m_msg) || request.version != "2.0" || request.method.empty()) return false;
    std::string method(request.method);
    RpcCommand* command = m_table.lookup(method);
    std::vector<std::string> encodings;
    if (!command || read_encodings(request.accept, encodings)) return false;
    out.push_back(std::make_unique<JsonRpcMethod>(std::move(request.id), std::move(method), command,
                                                  std::move(request.params), std::move(encodings), m_table,
                                                  /*first=*/true));
    return true;
}

void ReqParser::parse_single_request(Json::Value& request, Objects& out) {
    Json::Value id = take_member(request, "id");
    const auto refuse = [&](int code, std::string message, bool force = false) {
        out.push_back(std::make_unique<JsonRpcError>(std::move(id), code, std::move(message), force));
    };

    if (!request.isObject() && !request.isNull()) return refuse(INVALID_REQUEST, "Invalid Request", true);
    if (!is_version_2(request)) return refuse(INVALID_REQUEST, "Invalid JSONRPC Version");
    const Json::Value& name = member_of(request, "method");
    if (!converts_to_string(name)) return refuse(INVALID_REQUEST, "Invalid format for method name");
    std::string method = name.asString();
    if (method.empty()) return refuse(INVALID_REQUEST, "Missing Method Name");
    RpcCommand* command = m_table.lookup(method);
    if (!command) return refuse(METHOD_NOT_FOUND, not_registered(method));
    std::vector<std::string> encodings;
    if (!parse_encodings(request, id, out, encodings)) return;

    out.push_back(std::make_unique<JsonRpcMethod>(std::move(id), std::move(method), command,
                                                  take_member(request, "params"), std::move(encodings),
                                                  m_table, /*first=*/out.empty()));
}

bool ReqParser::parse_encodings(const Json::Value& request, const Json::Value& id, Objects& out,
                                std::vector<std::string>& encodings) {
    const char* error = read_encodings(member_of(request, "accept"), encodings);
    if (error) out.push_back(std::make_unique<JsonRpcError>(id, INVALID_REQUEST, error));
    return !error;
}

void ReqParser::generate_common_error(Json::Value& res, const std::string& msg) {
    JsonRpcError(Json::Value(), INTERNAL_ERROR, msg, true).execute(res);
}

void ReqParser::generate_common_error(std::string& out, const std::string& msg) {
    Json::Value res;
    generate_common_error(res, msg);
    out = json::write_line(res);
}

std::string ReqParser::pretty_json_str(const std::string& text) {
    Json::Value root;
    return json::parse(text, root) ? json::write_styled(root) : text;
}

bool is_proper_json_format(const Json::Value& msg) {
    if (!is_version_2(msg)) return false;
    const Json::Value& id = member_of(msg, "id");
    return id.isString() || id.isIntegral() || id.isNull();
}

}  // namespace corvo
