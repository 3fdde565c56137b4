#pragma once
// Reads the end of the log file, and reads or changes the logger's levels while the daemon runs.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>

#include "infra/corvo_logger.h"
#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdLog : public RpcCommand {
 public:
    /** `global_name`: how the level of all components without one of their own is called. */
    explicit RpcCmdLog(std::string global_name) : RpcCommand("log"), m_global_name(std::move(global_name)) {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void handle_log_cmds(const Json::Value& params, Json::Value& res);
    void handle_verbosity_cmds(const Json::Value& params, Json::Value& res);
    void handle_verbosity_get(const Json::Value& params, Json::Value& res);
    void handle_verbosity_set(const Json::Value& params, Json::Value& res);
    /** `comp` is absent, null or a string. */
    void handle_verbosity_set_verb(const Json::Value& params, Json::Value& res);
    void handle_verbosity_reset(const Json::Value& params, Json::Value& res);
    /** @throws corvo::Exception for a word that is no level */
    Logger::logger_level_e str_to_level(const std::string& word);

    std::string m_global_name;
};

}  // namespace corvo
