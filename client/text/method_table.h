#pragma once
// The daemon's methods as described in docs/openrpc.json, built into the program: names, parameters, types,
// texts, results. Words, help, completion, `schema`, `check` and the manual pages all read this one table.

#include <json/value.h>

#include <string>
#include <vector>

namespace brumectl {

struct Parameter {
    std::string name;
    std::string description;
    bool required = false;
    const Json::Value* schema = nullptr;  ///< JSON schema, with the table's $refs
    /** {parameter: [values]} that together make it required; JSON null: none. */
    const Json::Value* required_when = nullptr;
    /** {parameter: {value: [words]}}: the words that it can be beside that value; JSON null: no such rule. */
    const Json::Value* enum_when = nullptr;
};

struct Method {
    std::string name;
    std::string summary;
    std::string description;
    std::vector<Parameter> parameters;
    const Json::Value* document = nullptr;  ///< its entry in the document

    /** Null if there is no such parameter. */
    const Parameter* find(const std::string& name) const;
};

class MethodTable {
 public:
    /** The built-in table. Lives as long as the program. */
    static const MethodTable& get();

    /** From another document of the same form, which must be valid. */
    explicit MethodTable(Json::Value document);
    MethodTable(const MethodTable&) = delete;
    MethodTable& operator=(const MethodTable&) = delete;

    const std::vector<Method>& methods() const { return m_methods; }
    /** Null if the method isn't ours; an engine library may have added it. */
    const Method* find(const std::string& name) const;
    std::vector<std::string> names() const;
    const Json::Value& document() const { return m_document; }
    /** The document's text as in the source tree. */
    static const char* text();
    /** Resolves a schema's "$ref" into this document; a schema without one is returned as is. */
    const Json::Value& resolve(const Json::Value& schema) const;

 private:
    const Json::Value m_document;  ///< the methods point into it
    std::vector<Method> m_methods;
};

}  // namespace brumectl
