#pragma once
// The table of methods that a library is given: the daemon's own, and what the library makes of them.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_rpc_command.h"

namespace engine_check {

class Methods {
 public:
    /** The daemon's own, none of which must be called: there is no server. */
    Methods();
    Methods(const Methods&) = delete;
    Methods& operator=(const Methods&) = delete;
    /** What the library has left in the table is abandoned: its code is gone. */
    ~Methods();

    corvo::RpcCommandsTable* table() { return m_table.get(); }
    /** Those of the library, in order. */
    std::vector<std::string> brought();
    /** Those of the daemon that the library has hidden, or taken away with its own. */
    std::vector<std::string> displaced();
    /** Components of the library, which may have no method. */
    size_t components() const;

 private:
    std::unique_ptr<corvo::RpcCommandsTable> m_table;
    std::map<std::string, corvo::RpcCommand*> m_daemons;
};

}  // namespace engine_check
