#include "server/corvo_server_config.h"

#include <optional>
#include <sstream>

#include "infra/corvo_logger.h"
#include "infra/json/corvo_json.h"
#include "utils/exception.h"

namespace corvo {
namespace {

const std::string COMP = "server";

using ErrorText = std::optional<std::string>;

/** The text of a response's error, which may be empty. */
ErrorText error_of(const Json::Value& response) {
    if (!response.isObject() || response["error"].isNull()) return {};
    const Json::Value& error = response["error"];
    if (!error.isObject()) return json::write(error);
    const Json::Value& text = error["specific_err"].isNull() ? error["message"] : error["specific_err"];
    return text.isString() ? text.asString() : json::write(text);
}

ErrorText first_error_of(const Json::Value& response) {
    if (!response.isArray()) return error_of(response);
    for (const Json::Value& single : response)
        if (ErrorText text = error_of(single)) return text;
    return {};
}

}  // namespace

int ReadConfig::execute() {
    std::fstream file(m_path, std::ios::in | std::ios::binary);
    if (!file) {
        CORVO_LOG(ERROR, COMP, "Failed to read config file: %s", m_path.c_str());
        return -1;
    }
    CORVO_LOG(INFO, COMP, "Reading Configuration from file: %s", m_path.c_str());
    try {
        read_and_digest_config_file(file);
    } catch (const Exception& e) {
        CORVO_LOG_TEXT(ERROR, COMP, e.what());
        throw;
    }
    return -1;
}

void ReadConfig::read_and_digest_config_file(std::basic_fstream<char>& file) {
    std::ostringstream text;
    text << file.rdbuf();
    Json::Value root;
    std::string error;
    if (!json::parse(text.str(), root, &error))
        throw Exception("Failed to parse config file: \n[" + error + "]");
    if (!root.isArray()) throw Exception("Json Array of commands expected in config file");
    for (const Json::Value& element : root)
        run_element(element);
}

void ReadConfig::run_element(const Json::Value& element) {
    const std::string request = json::write(element);
    CORVO_LOG(DEBUG, COMP, "Executing command from config file: [%s]", request.c_str());
    std::string response;
    m_handler(request, response);

    Json::Value parsed;
    if (!json::parse(response, parsed)) {
        CORVO_LOG(ERROR, COMP, "Failed to parse response for config file: [%s]", response.c_str());
        return;
    }
    const ErrorText error = first_error_of(parsed);
    if (!error) return;
    CORVO_LOG(ERROR, COMP, "Config file error: %s", error->c_str());
    throw Exception("Config file encountered an error, exiting");
}

namespace server {

const char* get_default_conf_path() {
    return "./.cvconfig";
}

}  // namespace server
}  // namespace corvo
