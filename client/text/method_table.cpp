#include "client/text/method_table.h"

#include "client/failure.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

extern const char openrpc_text[];  // generated from docs/openrpc.json by the build

namespace {

Method read_method(const Json::Value& document) {
    Method method;
    method.name = document["name"].asString();
    method.summary = document["summary"].asString();
    method.description = document["description"].asString();
    method.document = &document;
    for (const Json::Value& param : document["params"])
        method.parameters.push_back({param["name"].asString(), param["description"].asString(),
                                     param["required"].asBool(), &param["schema"], &param["x-required-when"],
                                     &param["x-enum-when"]});
    return method;
}

}  // namespace

const Parameter* Method::find(const std::string& wanted) const {
    for (const Parameter& parameter : parameters)
        if (parameter.name == wanted) return &parameter;
    return nullptr;
}

MethodTable::MethodTable(Json::Value document) : m_document(std::move(document)) {
    for (const Json::Value& method : m_document["methods"])
        m_methods.push_back(read_method(method));
}

const MethodTable& MethodTable::get() {
    static const MethodTable table([] {
        Json::Value document;
        std::string error;
        if (!corvo::json::parse(openrpc_text, document, &error))
            throw Failure("the built-in method table is broken: " + error);
        return document;
    }());
    return table;
}

const char* MethodTable::text() {
    return openrpc_text;
}

const Method* MethodTable::find(const std::string& name) const {
    for (const Method& method : m_methods)
        if (method.name == name) return &method;
    return nullptr;
}

std::vector<std::string> MethodTable::names() const {
    std::vector<std::string> names;
    for (const Method& method : m_methods)
        names.push_back(method.name);
    return names;
}

const Json::Value& MethodTable::resolve(const Json::Value& schema) const {
    const Json::Value* at = &schema;
    while (at->isObject() && at->isMember("$ref")) {
        std::string path = (*at)["$ref"].asString();
        at = &m_document;
        for (size_t begin = path.find('/'); begin != std::string::npos;) {
            size_t end = path.find('/', begin + 1);
            at = &(*at)[path.substr(begin + 1, end == std::string::npos ? end : end - begin - 1)];
            begin = end;
        }
    }
    return *at;
}

}  // namespace brumectl
