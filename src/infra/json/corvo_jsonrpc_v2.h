#pragma once
// JSON-RPC 2.0 from the text of a message to the text of its reply, with this system's additions: `accept` in
// a request, `fmt` and `ms` in a success, `specific_err` in an error. `ReqParser` turns a message into one
// `ParsedObject` per element and runs them in order.

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** One element of a request. It gets a response if it has an id, or if its creator insists. */
class ParsedObject {
 public:
    ParsedObject(Json::Value id, bool force) : m_id(std::move(id)), m_respond(force || !m_id.isNull()) {}
    ParsedObject(const ParsedObject&) = delete;
    ParsedObject& operator=(const ParsedObject&) = delete;
    virtual ~ParsedObject() = default;

    /** Runs the element once. Sets `res` to its response, or leaves it unchanged if no response is due. */
    void execute(Json::Value& res);
    /** The same as text: appends what FastWriter makes of that value, without the newline. */
    void execute_text(std::string& out);

 protected:
    /** Adds the members that depend on the kind of response. */
    virtual void _execute(Json::Value& res) = 0;
    /** Appends the whole response. For subclasses that can do so without building it as a value first. */
    virtual void _execute_text(std::string& out);

    const Json::Value& id() const { return m_id; }
    bool respond() const { return m_respond; }
    /** Sets the members that all responses share. */
    void set_envelope(Json::Value& res) const;

 private:
    Json::Value m_id;
    bool m_respond;
};

/** Serves one message. Message and table must outlive this object. */
class ReqParser {
 public:
    using Objects = std::vector<std::unique_ptr<ParsedObject>>;

    ReqParser(const std::string& msg, const RpcCommandsTable& table) : m_msg(msg), m_table(table) {}
    ReqParser(std::string&&, const RpcCommandsTable&) = delete;

    /**
     * Returns the text of the reply, never empty: "null" if no element needs a response. The whole message is
     * parsed before anything runs. Exceptions of a command other than RpcCommandException pass through.
     */
    std::string execute();

    /** Appends one object per element; an invalid element doesn't stop the others. */
    void parse(Objects& out);
    /** Moves members out of `request`. */
    void parse_single_request(Json::Value& request, Objects& out);
    /** Reads `accept`. On false, the error has been appended to `out`. */
    bool parse_encodings(const Json::Value& request, const Json::Value& id, Objects& out,
                         std::vector<std::string>& encodings);

    /** An internal error with a null id, for a request that was never parsed. */
    static void generate_common_error(Json::Value& res, const std::string& msg);
    static void generate_common_error(std::string& out, const std::string& msg);
    /** For debug lines: indented, or `text` unchanged if it isn't JSON. */
    static std::string pretty_json_str(const std::string& text);

 private:
    /** Appends the object of a single, valid, typical request. On false, nothing has been appended. */
    bool parse_plain_request(Objects& out);

    const std::string& m_msg;
    const RpcCommandsTable& m_table;
};

/** Whether a value looks like a request or a response: an object of version 2.0 with a usable id or none. */
bool is_proper_json_format(const Json::Value& msg);

}  // namespace corvo
