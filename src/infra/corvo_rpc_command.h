#pragma once
// RPC methods as objects: a command checks its parameters with the helpers of its base, does its work and
// writes `res["result"]`. Components group commands; the table maps a whole method string to a command.
// All of this is exported to the engine library, which may load components of its own.

#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "utils/exception.h"

namespace corvo {

/** Result of a command. */
enum cmd_rc_e : uint32_t {
    CMD_OK = 0,
    CMD_BAD_PARAMS = 1,
    CMD_EXEC_FAILED = 2,
    CMD_INTERNAL_ERR = 3,
    CMD_TRY_AGAIN = 4,
    CMD_IN_PROGRESS = 5,
    CMD_NO_RESULTS = 6,
};

/** Ends a command with a result other than CMD_OK; the explanation stands in its output already. */
class RpcCommandException : public Exception {
 public:
    RpcCommandException(const std::string& message, uint32_t rc) : Exception(message), m_rc(rc) {}
    uint32_t rc() const { return m_rc; }

 private:
    uint32_t m_rc;
};

/** Field checks with exact error texts. `res` is the command's output; every failure throws. */
class RpcParser {
 public:
    enum field_type_e : uint32_t {
        TYPE_BYTE = 0,
        TYPE_UINT16,
        TYPE_UINT32,
        TYPE_UINT64,
        TYPE_INT,
        TYPE_DOUBLE,
        TYPE_UDOUBLE,
        TYPE_BOOL,
        TYPE_STRING,
        TYPE_OBJECT,
        TYPE_ARRAY,
    };

    static const char* type_to_str(field_type_e type);
    static const char* json_type_to_name(Json::ValueType type);

    /** Member `name` of the object `params`. Null `params` counts as a missing field. */
    void check_field_type(const Json::Value& params, const std::string& name, field_type_e type,
                          Json::Value& res);
    /** Element `index` of an array. */
    void check_field_type(const Json::Value& array, int index, field_type_e type, Json::Value& res);
    /** The value itself. */
    void check_field_type_common(const Json::Value& value, const std::string& name, field_type_e type,
                                 Json::Value& res);

    /**
     * Member `name`, or the null value where it, or `params` altogether, is absent.
     * @throws corvo::Exception "internal parsing error" if `params` is neither null nor an object
     */
    static const Json::Value& optional_field(const Json::Value& params, const char* name);

    /** Gives the pointer of the list whose text the member equals. */
    template <typename T = const char*>
    T parse_choice(const Json::Value& params, const std::string& name, std::initializer_list<T> choices,
                   Json::Value& res);
    template <typename T>
    const std::string parse_string(const Json::Value& params, const T& name, Json::Value& res) {
        check_field_type(params, name, TYPE_STRING, res);
        return params[name].asString();
    }

    void validate_path(const std::string& path, Json::Value& res);
    void validate_file(const std::string& path, Json::Value& res);
    void validate_ip(const std::string& ip, Json::Value& res);

    [[noreturn]] void generate_parse_err(Json::Value& res, const std::string& msg);
    [[noreturn]] void generate_parser_execute_err(Json::Value& res, const std::string& msg);
};

template <>
const char* RpcParser::parse_choice<const char*>(const Json::Value& params, const std::string& name,
                                                 std::initializer_list<const char*> choices,
                                                 Json::Value& res);

class RpcCommand : public RpcParser {
 public:
    explicit RpcCommand(std::string name) : m_name(std::move(name)) {}
    RpcCommand(const RpcCommand&) = delete;
    RpcCommand& operator=(const RpcCommand&) = delete;
    virtual ~RpcCommand() = default;

    /**
     * Gives what the command gave, or the value of the RpcCommandException that ended it. JSON of an
     * unexpected kind that the command tripped over is CMD_INTERNAL_ERR; other exceptions pass through.
     */
    uint32_t run(const std::string& method, const Json::Value& params, Json::Value& res);
    const std::string& name() const { return m_name; }

    [[noreturn]] void generate_execute_err(Json::Value& res, const std::string& msg);
    [[noreturn]] void generate_internal_err(Json::Value& res, const std::string& msg);

 protected:
    virtual uint32_t _run(const std::string& method, const Json::Value& params, Json::Value& res) = 0;

    /** Runs `work`. A corvo::Exception, a failed field check included, is logged and ends the command. */
    template <class Work>
    void guarded(Json::Value& res, Work&& work) {
        try {
            std::forward<Work>(work)();
        } catch (const Exception& e) {
            fail_logged(res, e.what());
        }
    }

 private:
    [[noreturn]] void fail_logged(Json::Value& res, const std::string& msg);

    std::string m_name;
};

/**
 * Owns its commands. A concrete component fills itself in its constructor and adds no members: it is
 * destroyed as an RpcComponent.
 */
class RpcComponent {
 public:
    explicit RpcComponent(std::string name) : m_name(std::move(name)) {}
    RpcComponent(const RpcComponent&) = delete;
    RpcComponent& operator=(const RpcComponent&) = delete;

    /** Takes ownership. */
    void add(RpcCommand* command);
    const std::string& name() const { return m_name; }
    const std::vector<std::unique_ptr<RpcCommand>>& commands() const { return m_commands; }

 private:
    std::string m_name;
    std::vector<std::unique_ptr<RpcCommand>> m_commands;
};

/** Maps "component.command", or "command" where the component has no name, to a command. */
class RpcCommandsTable {
 public:
    RpcCommandsTable() = default;
    RpcCommandsTable(const RpcCommandsTable&) = delete;
    RpcCommandsTable& operator=(const RpcCommandsTable&) = delete;
    ~RpcCommandsTable() { reset(); }

    /** `reset`, then marks the table as initialised. The arguments are not used. */
    void init(const std::string&, int, int);
    /** Destroys all components and empties the table. */
    void reset();
    /** Takes ownership. A key that is there already is overwritten: the last one loaded wins. */
    void load_component(RpcComponent* component);
    /** Gives ownership back to the caller. @throws corvo::Exception for an unknown name */
    void unload_component(const std::string& name);
    RpcComponent* lookup_component(const std::string& name);
    /** The command of this key, else the one under "*.*", else null. */
    RpcCommand* lookup(const std::string& method) const;
    /** Appends every key, in the map's own order. */
    void query(std::vector<std::string>& out) const;
    /** Grows with each change: a command that was looked up before may be gone by then. */
    uint64_t changes() const { return m_changes; }
    /**
     * Whether a command that `lookup` once gave for `method` still is a loaded component's, though the key
     * may map to another one by now. `command` needn't be alive.
     */
    bool has(const RpcCommand* command, const std::string& method) const;

 private:
    std::vector<std::unique_ptr<RpcComponent>> m_components;
    std::unordered_map<std::string, RpcCommand*> m_commands;
    uint64_t m_changes = 0;
    bool m_initialised = false;
};

}  // namespace corvo
