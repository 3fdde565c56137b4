#include "infra/corvo_rpc_command.h"

#include <algorithm>
#include <cassert>

#include "infra/corvo_logger.h"

namespace corvo {

namespace {

const std::string COMP = "rpc";
const std::string ANY = "*.*";  // key of the fallback command for unknown methods

std::string key_of(const std::string& component, const RpcCommand& command) {
    const std::string& name = RpcTableView::name(command);
    return component.empty() ? name : component + "." + name;
}

}  // namespace

RpcCommandException::RpcCommandException(const std::string& message, uint32_t rc)
    : Exception(message), m_rc(rc) {}

RpcCommand::RpcCommand(const std::string& name) : m_name(name) {}

RpcCommand::~RpcCommand() = default;

int RpcCommand::run(const std::string& method, const Json::Value& params, Json::Value& res) {
    try {
        return _run(method, params, res);
    } catch (const RpcCommandException& e) {
        return static_cast<int>(e.m_rc);
    } catch (const Json::Exception& e) {
        // The scheduler doesn't catch this exception's family: it would end the process.
        res = Json::Value(Json::objectValue);
        res["specific_err"] = e.what();
        return CMD_INTERNAL_ERR;
    }
}

void RpcCommand::generate_execute_err(Json::Value& res, const std::string& msg) {
    generate_parser_execute_err(res, msg);
}

void RpcCommand::generate_internal_err(Json::Value& res, const std::string& msg) {
    res["specific_err"] = msg;
    throw RpcCommandException(msg, CMD_INTERNAL_ERR);
}

RpcComponent::RpcComponent(const std::string& name) : m_name(name) {}

RpcComponent::~RpcComponent() = default;

void RpcComponent::add(RpcCommand* command) {
    assert(command);
    m_commands.emplace_back(command);
}

RpcCommandsTable::RpcCommandsTable() = default;

RpcCommandsTable::~RpcCommandsTable() {
    reset();
}

void RpcCommandsTable::init(const std::string&, int, int) {
    reset();
    m_initialised = true;
}

void RpcCommandsTable::reset() {
    m_initialised = false;
    m_commands.clear();
    m_components.clear();
}

void RpcCommandsTable::load_component(RpcComponent* component) {
    assert(component);
    m_components.emplace_back(component);
    for (const auto& command : component->m_commands)
        m_commands[key_of(component->m_name, *command)] = command.get();
}

void RpcCommandsTable::unload_component(const std::string& name) {
    auto it = std::find_if(m_components.begin(), m_components.end(),
                           [&](const auto& component) { return component->m_name == name; });
    if (it == m_components.end()) throw Exception("component " + name + " was never loaded");
    for (const auto& command : (*it)->m_commands)
        m_commands.erase(key_of((*it)->m_name, *command));
    static_cast<void>(it->release());  // the caller owns it from here on
    m_components.erase(it);
}

RpcComponent* RpcCommandsTable::lookup_component(const std::string& name) {
    for (const auto& component : m_components) {
        if (component->m_name == name) return component.get();
    }
    return nullptr;
}

RpcCommand* RpcCommandsTable::lookup(const std::string& method) const {
    auto it = m_commands.find(method);
    if (it == m_commands.end()) it = m_commands.find(ANY);
    return it == m_commands.end() ? nullptr : it->second;
}

void RpcCommandsTable::query(std::vector<std::string>& out) {
    out.reserve(out.size() + m_commands.size());
    for (const auto& entry : m_commands)
        out.push_back(entry.first);
}

bool RpcTableView::has(const RpcCommandsTable& table, const RpcCommand* command, const std::string& method) {
    auto it = table.m_commands.find(method);
    if (it != table.m_commands.end() && it->second == command) return true;
    for (const auto& component : table.m_components)
        for (const auto& loaded : component->m_commands) {
            if (loaded.get() != command) continue;
            const std::string key = key_of(component->m_name, *loaded);
            return key == method || key == ANY;
        }
    return false;
}

void fail_logged(Json::Value& res, const std::string& msg) {
    CORVO_LOG_TEXT(ERROR, COMP, msg);
    RpcParser().generate_parser_execute_err(res, msg);
}

}  // namespace corvo
