#pragma once
// JSON-RPC 2.0 from the text of one message to the text of one reply, with this system's additions: `accept`
// in a request, `fmt` and `ms` in a success, `specific_err` in an error. `ReqParser` takes a message apart
// into one `ParsedObject` per element and runs them in order.

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** One element of a request. It is answered if it has an id, or if its creator insists. */
class ParsedObject {
 public:
    ParsedObject(Json::Value id, bool force) : m_id(std::move(id)), m_respond(force || !m_id.isNull()) {}
    ParsedObject(const ParsedObject&) = delete;
    ParsedObject& operator=(const ParsedObject&) = delete;
    virtual ~ParsedObject() = default;

    /** Runs the element once. `res` becomes its response, or stays as it is where none is due. */
    void execute(Json::Value& res);
    /** The same as text: appends what FastWriter makes of that value, without the newline. */
    void execute_text(std::string& out);

 protected:
    /** Adds the members that depend on the kind of response. */
    virtual void _execute(Json::Value& res) = 0;
    /** Appends the whole response. For those that can do so without building it as a value first. */
    virtual void _execute_text(std::string& out);

    const Json::Value& id() const { return m_id; }
    bool respond() const { return m_respond; }
    /** Sets the members that all responses share. */
    void set_envelope(Json::Value& res) const;

 private:
    Json::Value m_id;
    bool m_respond;
};

/** A call of a command. The table must outlive it. */
class JsonRpcMethod : public ParsedObject {
 public:
    /** `first`: it runs before anything could unload the command. */
    JsonRpcMethod(Json::Value id, std::string method, RpcCommand* command, Json::Value params,
                  std::vector<std::string> encodings, const RpcCommandsTable& table, bool first);

 protected:
    void _execute(Json::Value& res) override;
    void _execute_text(std::string& out) override;

 private:
    struct Outcome;

    Outcome perform();
    std::string pack(const std::string& plain) const;
    void describe_success(Outcome& outcome, Json::Value& res) const;
    void describe_failure(const Outcome& outcome, Json::Value& res) const;

    std::string m_method;
    RpcCommand* m_command;
    Json::Value m_params;
    std::vector<std::string> m_encodings;
    const RpcCommandsTable& m_table;
    bool m_first;
};

class JsonRpcError : public ParsedObject {
 public:
    JsonRpcError(Json::Value id, int code, std::string message, bool force = false)
        : ParsedObject(std::move(id), force), m_code(code), m_message(std::move(message)) {}

 protected:
    void _execute(Json::Value& res) override;

 private:
    int m_code;
    std::string m_message;
};

/** Serves one message. Message and table must outlive it. */
class ReqParser {
 public:
    using Objects = std::vector<std::unique_ptr<ParsedObject>>;

    ReqParser(const std::string& msg, const RpcCommandsTable& table) : m_msg(msg), m_table(table) {}
    ReqParser(std::string&&, const RpcCommandsTable&) = delete;

    /**
     * The text of the reply, never empty: that of null where no element asks for an answer. Nothing runs
     * before the whole message is parsed. What a command throws, other than RpcCommandException, passes.
     */
    std::string execute();

    /** Appends one object per element; an element that is in error doesn't stop the others. */
    void parse(Objects& out);
    /** Takes its members out of `request`. */
    void parse_single_request(Json::Value& request, Objects& out);
    /** Reads `accept`. False: the error has been appended to `out`. */
    bool parse_encodings(const Json::Value& request, const Json::Value& id, Objects& out,
                         std::vector<std::string>& encodings);

    /** An internal error with null id, for a request that never reached parsing. */
    static void generate_common_error(Json::Value& res, const std::string& msg);
    static void generate_common_error(std::string& out, const std::string& msg);
    /** For debug lines: indented, or `text` itself where it is no JSON. */
    static std::string pretty_json_str(const std::string& text);

 private:
    /** Appends the one object of a request that is neither a batch nor wrong. False: nothing is appended. */
    bool parse_plain_request(Objects& out);

    const std::string& m_msg;
    const RpcCommandsTable& m_table;
};

/** Has the outline of a request or a response: an object of version 2.0 with a usable id, or none. */
bool is_proper_json_format(const Json::Value& msg);

}  // namespace corvo
