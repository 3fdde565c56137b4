// Reads the end of the log file, and shows or changes the logger's levels at run time.

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

#include "infra/corvo_logger.h"
#include "infra/corvo_rpc_command.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"

namespace corvo {

namespace {

const std::string COMP = "rpc";
constexpr uint32_t DEFAULT_LINES = 100;

struct LevelWord {
    const char* word;
    Logger::logger_level_e level;
};

constexpr LevelWord LEVEL_WORDS[] = {
    {"quiet", Logger::QUIET}, {"error", Logger::ERROR}, {"warn", Logger::WARN},
    {"info", Logger::INFO},   {"debug", Logger::DEBUG},
};

/** The logger pads its words to a column's width. */
std::string without_padding(std::string word) {
    word.erase(word.find_last_not_of(' ') + 1);
    return word;
}

}  // namespace

class RpcCmdLog : public RpcCommand {
 public:
    /** `global_name` stands for the level of all components without their own. */
    explicit RpcCmdLog(std::string global_name) : RpcCommand("log"), m_global_name(std::move(global_name)) {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            res["result"] = Json::objectValue;
            const std::string type = parse_choice(params, "type", {"log", "verbosity"}, res);
            if (type == "log") {
                handle_log_cmds(params, res);
            } else {
                check_field_type(params, "verbosity", TYPE_OBJECT, res);
                handle_verbosity_cmds(params["verbosity"], res);
            }
        });
        return CMD_OK;
    }

 private:
    void handle_log_cmds(const Json::Value& params, Json::Value& res) {
        const auto count = optional_param<uint32_t>(*this, params, "maxlines", DEFAULT_LINES, res);
        std::vector<std::string> lines;
        Logger::history(lines, count);
        res["result"]["log"] = to_json_array(lines);
    }

    void handle_verbosity_cmds(const Json::Value& params, Json::Value& res) {
        const std::string cmd = parse_choice(params, "cmd", {"get", "set", "reset"}, res);
        if (cmd == "get") {
            handle_verbosity_get(params, res);
        } else if (cmd == "set") {
            handle_verbosity_set(params, res);
        } else {
            handle_verbosity_reset(params, res);
        }
    }

    void handle_verbosity_get(const Json::Value&, Json::Value& res) {
        Logger::LoggerInstance& logger = *Logger::get_logger();
        Json::Value& verbosity = res["result"]["verbosity"];
        Json::Value& levels = verbosity["comp"];
        Json::Value& names = verbosity["comps"] = Json::arrayValue;
        levels[m_global_name] = without_padding(logger.get_verbosity());
        for (const auto& [name, level] : logger.get_verbosity_comps()) {
            names.append(name);
            const std::string word = without_padding(logger.level_to_str(level));
            if (word != "INHERITED") levels[name] = word;
        }
    }

    void handle_verbosity_set(const Json::Value& params, Json::Value& res) {
        if (!optional_field(params, "comp").isNull()) check_field_type(params, "comp", TYPE_STRING, res);
        handle_verbosity_set_verb(params, res);
    }

    /** `comp` must be absent, null or a string. */
    void handle_verbosity_set_verb(const Json::Value& params, Json::Value& res) {
        const std::string comp = params["comp"].asString();
        const auto word = required_param<std::string>(*this, params, "level", res);
        const Logger::logger_level_e level = str_to_level(word);
        if (comp.empty() || comp == m_global_name) {
            Logger::get_logger()->set_verbosity(level);
            CORVO_LOG(INFO, COMP, "'%s' verbosity was changed to level %s", m_global_name.c_str(),
                      word.c_str());
        } else {
            Logger::get_logger()->set_verbosity(level, comp);
            CORVO_LOG(INFO, COMP, "'%s' verbosity was changed to level %s", comp.c_str(), word.c_str());
        }
    }

    void handle_verbosity_reset(const Json::Value& params, Json::Value& res) {
        const auto word = required_param<std::string>(*this, params, "level", res);
        Logger::get_logger()->reset_verbosity(str_to_level(word));
        CORVO_LOG(INFO, COMP, "'%s' verbosity was changed to level %s, other components' verbosity removed",
                  m_global_name.c_str(), word.c_str());
    }

    /** Throws corvo::Exception for a word that isn't a level. */
    Logger::logger_level_e str_to_level(const std::string& word) {
        for (const LevelWord& entry : LEVEL_WORDS) {
            if (word == entry.word) return entry.level;
        }
        throw Exception("Bad verbosity level");
    }

    std::string m_global_name;
};

void add_log_commands(RpcComponent& component) {
    component.add(new RpcCmdLog("default"));
}

}  // namespace corvo
