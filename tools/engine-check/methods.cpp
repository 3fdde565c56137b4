#include "tools/engine-check/methods.h"

#include <algorithm>

#include "server/rpc/core/corvo_rpc_core.h"

namespace engine_check {

Methods::Methods() : m_table(std::make_unique<corvo::RpcCommandsTable>()) {
    m_table->load_component(new corvo::RpcCmdsCore);
    for (const std::string& method : brought())
        m_daemons[method] = m_table->lookup(method);
}

Methods::~Methods() {
    if (components() > 0) static_cast<void>(m_table.release());
}

std::vector<std::string> Methods::brought() {
    std::vector<std::string> methods;
    m_table->query(methods);
    std::erase_if(methods, [this](const std::string& method) { return m_daemons.count(method) > 0; });
    std::sort(methods.begin(), methods.end());
    return methods;
}

std::vector<std::string> Methods::displaced() {
    std::vector<std::string> methods;
    for (const auto& [method, command] : m_daemons)
        if (m_table->lookup(method) != command) methods.push_back(method);
    return methods;
}

size_t Methods::components() const {
    return corvo::RpcTableView::components(*m_table) - 1;
}

}  // namespace engine_check
