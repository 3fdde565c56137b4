#include "infra/corvo_rpc_command.h"

#include <algorithm>
#include <cassert>

#include "infra/corvo_logger.h"

namespace corvo {

namespace {

const std::string COMP = "rpc";
const std::string ANY = "*.*";  // the key of a command for all methods that have none

std::string key_of(const RpcComponent& component, const RpcCommand& command) {
    return component.name().empty() ? command.name() : component.name() + "." + command.name();
}

}  // namespace

uint32_t RpcCommand::run(const std::string& method, const Json::Value& params, Json::Value& res) {
    try {
        return _run(method, params, res);
    } catch (const RpcCommandException& e) {
        return e.rc();
    } catch (const Json::Exception& e) {
        // Not of the family that the scheduler knows: it would end the process.
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

void RpcCommand::fail_logged(Json::Value& res, const std::string& msg) {
    CORVO_LOG_TEXT(ERROR, COMP, msg);
    generate_execute_err(res, msg);
}

void RpcComponent::add(RpcCommand* command) {
    assert(command);
    m_commands.emplace_back(command);
}

void RpcCommandsTable::init(const std::string&, int, int) {
    reset();
    m_initialised = true;
}

void RpcCommandsTable::reset() {
    ++m_changes;
    m_initialised = false;
    m_commands.clear();
    m_components.clear();
}

void RpcCommandsTable::load_component(RpcComponent* component) {
    assert(component);
    ++m_changes;
    m_components.emplace_back(component);
    for (const auto& command : component->commands())
        m_commands[key_of(*component, *command)] = command.get();
}

void RpcCommandsTable::unload_component(const std::string& name) {
    auto it = std::find_if(m_components.begin(), m_components.end(),
                           [&](const auto& component) { return component->name() == name; });
    if (it == m_components.end()) throw Exception("component " + name + " was never loaded");
    ++m_changes;
    for (const auto& command : (*it)->commands())
        m_commands.erase(key_of(**it, *command));
    static_cast<void>(it->release());  // the caller's from here on
    m_components.erase(it);
}

RpcComponent* RpcCommandsTable::lookup_component(const std::string& name) {
    for (const auto& component : m_components) {
        if (component->name() == name) return component.get();
    }
    return nullptr;
}

RpcCommand* RpcCommandsTable::lookup(const std::string& method) const {
    auto it = m_commands.find(method);
    if (it == m_commands.end()) it = m_commands.find(ANY);
    return it == m_commands.end() ? nullptr : it->second;
}

bool RpcCommandsTable::has(const RpcCommand* command, const std::string& method) const {
    for (const auto& component : m_components)
        for (const auto& loaded : component->commands()) {
            if (loaded.get() != command) continue;
            const std::string key = key_of(*component, *loaded);
            return key == method || key == ANY;
        }
    return false;
}

void RpcCommandsTable::query(std::vector<std::string>& out) const {
    out.reserve(out.size() + m_commands.size());
    for (const auto& entry : m_commands)
        out.push_back(entry.first);
}

}  // namespace corvo
