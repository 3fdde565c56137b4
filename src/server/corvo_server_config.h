#pragma once
// The startup configuration file: a JSON array of JSON-RPC requests, executed by the same handler that serves
// clients, so anything that a client can do can be configured. The first failing request stops the daemon.

#include <json/value.h>

#include <fstream>
#include <functional>
#include <string>

#include "infra/corvo_task.h"

namespace corvo {

/** Runs once. An exception from it ends the scheduler's loop. */
class ReadConfig : public Task {
 public:
    using handler_fn = std::function<void(const std::string& request, std::string& response)>;

    ReadConfig(std::string path, handler_fn handler)
        : Task(0), m_path(std::move(path)), m_handler(std::move(handler)) {}

    int execute() override;
    std::string get_name() const override { return "ReadConfig"; }

    /** Throws corvo::Exception if the file isn't an array of requests, or one of them fails. */
    void read_and_digest_config_file(std::basic_fstream<char>& file);

 private:
    void run_element(const Json::Value& element);

    std::string m_path;
    handler_fn m_handler;
};

namespace server {

/** Where to look for a configuration if none is named. */
const char* get_default_conf_path();

}  // namespace server
}  // namespace corvo
