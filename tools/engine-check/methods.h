#pragma once
// The method table handed to a library: the daemon's own methods, plus whatever the library adds.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_rpc_command.h"

namespace engine_check {

class Methods {
 public:
    /** Fills the table with the daemon's own methods. None of them may be called: there is no server. */
    Methods();
    Methods(const Methods&) = delete;
    Methods& operator=(const Methods&) = delete;
    /** Abandons what the library left in the table, since its code has been unloaded. */
    ~Methods();

    corvo::RpcCommandsTable* table() { return m_table.get(); }
    /** The library's methods, in order. */
    std::vector<std::string> brought();
    /** The daemon's methods that the library has overridden, or removed with its own. */
    std::vector<std::string> displaced();
    /** Number of the library's components, which may have no methods. */
    size_t components() const;

 private:
    std::unique_ptr<corvo::RpcCommandsTable> m_table;
    std::map<std::string, corvo::RpcCommand*> m_daemons;
};

}  // namespace engine_check
