#pragma once
// RPC methods as objects, for libraries that bring their own. A command checks its parameters with the
// helpers of its base class, does its work and writes `res["result"]`. A component groups commands. The
// daemon's table, which `corvo_api_cp_init` receives as `InitConfig::cmds`, maps the text of a request's
// `method` to a command.
//
// The daemon exports all of this. A library that includes this header can only be opened by a program that
// does the same, as brumecp-engine-check does. The order and types of members and virtual functions are part
// of the boundary, so additions go elsewhere.
//
// Commands run on the one thread that also calls the library's functions; nothing may block.

#include <brumecpd/exception.h>
#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace corvo {

/** Result of a command. */
enum cmd_rc_e : uint32_t {
    CMD_OK = 0,
    CMD_BAD_PARAMS = 1,    ///< the client gets error -32602
    CMD_EXEC_FAILED = 2,   ///< -32000
    CMD_INTERNAL_ERR = 3,  ///< -32603
    CMD_TRY_AGAIN = 4,     ///< -32001
    CMD_IN_PROGRESS = 5,   ///< -32002
    CMD_NO_RESULTS = 6,    ///< -32003
};

/** Ends a command with a result other than CMD_OK; the explanation is already in the command's output. */
class [[gnu::visibility("default")]] RpcCommandException : public Exception {
 public:
    RpcCommandException(const std::string& message, uint32_t rc);

 private:
    friend class RpcCommand;
    uint32_t m_rc;
};

/**
 * Parameter checks with the error texts that clients know. `res` is the command's output. Every failure sets
 * `res["specific_err"]` and throws RpcCommandException: CMD_BAD_PARAMS for a field, CMD_EXEC_FAILED for a
 * value that a `validate_...` function rejects. `params` that is neither null nor an object throws a plain
 * Exception, which a command must not let out: it would stop the daemon.
 */
class [[gnu::visibility("default")]] RpcParser {
 public:
    enum field_type_e : uint32_t {
        TYPE_BYTE = 0,
        TYPE_UINT16 = 1,
        TYPE_UINT32 = 2,
        TYPE_UINT64 = 3,
        TYPE_INT = 4,
        TYPE_DOUBLE = 5,
        TYPE_UDOUBLE = 6,  ///< not below 0
        TYPE_BOOL = 7,
        TYPE_STRING = 8,
        TYPE_OBJECT = 9,
        TYPE_ARRAY = 10,
    };

    const char* type_to_str(field_type_e type);
    const char* json_type_to_name(const Json::Value& value);

    /** Checks member `name` of the object `params`. Null `params` counts as a missing field. */
    void check_field_type(const Json::Value& params, const std::string& name, field_type_e type,
                          Json::Value& res);
    /** Checks element `index` of an array. */
    void check_field_type(const Json::Value& array, int index, field_type_e type, Json::Value& res);
    /** Checks the value itself. */
    void check_field_type_common(const Json::Value& value, const std::string& name, field_type_e type,
                                 Json::Value& res);

    /**
     * Returns the pointer from `choices` whose text equals the member. Only the `const char*` version exists.
     */
    template <typename T>
    T parse_choice(const Json::Value& params, const std::string& name, std::initializer_list<T> choices,
                   Json::Value& res);
    /** Returns member `name`, a string literal, as text. */
    template <typename T>
    const std::string parse_string(const Json::Value& params, const T& name, Json::Value& res) {
        check_field_type(params, name, TYPE_STRING, res);
        return params[name].asString();
    }

    /** Checks for an existing folder. */
    void validate_path(const std::string& path, Json::Value& res);
    /** Checks for an existing regular file. */
    void validate_file(const std::string& path, Json::Value& res);
    /** Checks for an IPv4 or IPv6 address. */
    void validate_ip(const std::string& ip, Json::Value& res);

    /** Ends the command with CMD_BAD_PARAMS. */
    [[noreturn]] void generate_parse_err(Json::Value & res, const std::string& msg);
    /** Ends the command with CMD_EXEC_FAILED. */
    [[noreturn]] void generate_parser_execute_err(Json::Value & res, const std::string& msg);
};

template <>
[[gnu::visibility("default")]] const char* RpcParser::parse_choice<const char*>(
    const Json::Value& params, const std::string& name, std::initializer_list<const char*> choices,
    Json::Value& res);

class [[gnu::visibility("default")]] RpcCommand : public RpcParser {
 public:
    explicit RpcCommand(const std::string& name);
    RpcCommand(const RpcCommand&) = delete;
    RpcCommand& operator=(const RpcCommand&) = delete;
    virtual ~RpcCommand();

    /** Returns what the command returned, or the result of the RpcCommandException that ended it. */
    int run(const std::string& method, const Json::Value& params, Json::Value& res);

    /** Ends the command with CMD_EXEC_FAILED. */
    [[noreturn]] void generate_execute_err(Json::Value & res, const std::string& msg);
    /** Ends the command with CMD_INTERNAL_ERR. */
    [[noreturn]] void generate_internal_err(Json::Value & res, const std::string& msg);

 protected:
    /**
     * The command itself; returns CMD_OK or another result. Only RpcCommandException may leave it: anything
     * else stops the daemon.
     */
    virtual int _run(const std::string& method, const Json::Value& params, Json::Value& res) = 0;

 private:
    friend class RpcTableView;
    std::string m_name;
};

/**
 * Owns its commands. A library's component may fill itself in its constructor, but must add no members: it is
 * destroyed as an RpcComponent.
 */
class [[gnu::visibility("default")]] RpcComponent {
 public:
    explicit RpcComponent(const std::string& name);
    RpcComponent(const RpcComponent&) = delete;
    RpcComponent& operator=(const RpcComponent&) = delete;
    ~RpcComponent();

    /** Takes ownership. */
    void add(RpcCommand * command);

 private:
    friend class RpcCommandsTable;
    friend class RpcTableView;
    std::string m_name;
    std::vector<std::unique_ptr<RpcCommand>> m_commands;
};

/** Maps "component.command", or "command" if the component has no name, to a command. */
class [[gnu::visibility("default")]] RpcCommandsTable {
 public:
    RpcCommandsTable();
    RpcCommandsTable(const RpcCommandsTable&) = delete;
    RpcCommandsTable& operator=(const RpcCommandsTable&) = delete;
    ~RpcCommandsTable();

    /** Calls `reset`, then marks the table as initialised. The arguments are unused. */
    void init(const std::string&, int, int);
    /** Destroys all components and empties the table. */
    void reset();
    /** Takes ownership. A key that already exists is overwritten: the last one loaded wins. */
    void load_component(RpcComponent * component);
    /**
     * Returns ownership to the caller, who must have looked the component up before. Throws Exception for an
     * unknown name.
     */
    void unload_component(const std::string& name);
    /** Null if there is none. */
    RpcComponent* lookup_component(const std::string& name);
    /** The command with this key, else the one under "*.*", else null. */
    RpcCommand* lookup(const std::string& method) const;
    /** Appends every key, in no particular order. */
    void query(std::vector<std::string> & out);

 private:
    friend class RpcTableView;
    std::vector<std::unique_ptr<RpcComponent>> m_components;
    std::unordered_map<std::string, RpcCommand*> m_commands;
    bool m_initialised = false;
};

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(RpcCommand) == 28 && sizeof(RpcComponent) == 36 && sizeof(RpcCommandsTable) == 44);
#endif

}  // namespace corvo
