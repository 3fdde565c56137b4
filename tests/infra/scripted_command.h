#pragma once
// A command whose body is given by the test.

#include <functional>
#include <string>
#include <utility>

#include "infra/corvo_rpc_command.h"

namespace test {

class ScriptedCommand : public corvo::RpcCommand {
 public:
    using Body = std::function<void(ScriptedCommand& self, const Json::Value& params, Json::Value& res)>;

    explicit ScriptedCommand(const std::string& name, Body body = {})
        : RpcCommand(name), m_body(std::move(body)) {}

 private:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        if (m_body) m_body(*this, params, res);
        return corvo::CMD_OK;
    }

    Body m_body;
};

/** For `load_component`, which takes it. */
inline corvo::RpcComponent* make_component(const std::string& name,
                                           std::initializer_list<corvo::RpcCommand*> commands) {
    auto* made = new corvo::RpcComponent(name);
    for (corvo::RpcCommand* command : commands)
        made->add(command);
    return made;
}

}  // namespace test
