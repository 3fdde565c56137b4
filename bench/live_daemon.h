#pragma once
// The real daemon with the engine we ship, attached to one interface of this network namespace.

#include <fcntl.h>
#include <json/value.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "support/client.h"
#include "support/temp_dir.h"

namespace bench {

class LiveDaemon {
 public:
    /** `options`: of the engine. Throws std::runtime_error if it doesn't answer. */
    LiveDaemon(const std::string& ifname, const std::string& options) {
        const std::string config = m_dir.write("conf", options);
        std::filesystem::create_directory(m_dir.file("bin"));
        std::filesystem::create_directory_symlink(BENCH_SHIPPED_ENGINE, m_dir.file("lib"));
        m_pid = fork();
        if (m_pid == 0) {
            const std::string log = m_dir.file("log"), work = m_dir.file("bin");
            setenv("BRUMECP_ENGINE_CONF", config.c_str(), 1);
            dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            if (chdir(work.c_str()) == 0)
                execl(BENCH_DAEMON, "brumecpd", "-m", "us", "-s", socket_path().c_str(), "-l", log.c_str(),
                      "-a", "--attach", ifname.c_str(), "--wd_disable", nullptr);
            _exit(127);
        }
        if (!test::eventually([this] { return !ask("ping", Json::Value()).isNull(); }))
            throw std::runtime_error("the daemon doesn't answer");
    }
    LiveDaemon(const LiveDaemon&) = delete;
    LiveDaemon& operator=(const LiveDaemon&) = delete;
    ~LiveDaemon() {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }

    pid_t pid() const { return m_pid; }
    /** The result; null if there is no answer. */
    Json::Value ask(const std::string& method, const Json::Value& params) const {
        Json::Value request;
        request["jsonrpc"] = "2.0";
        request["id"] = 1;
        request["method"] = method;
        request["params"] = params;
        const test::UnixClient client(socket_path());
        std::string reply;
        return client.send(request.toStyledString()) && client.receive(reply) ? test::parse(reply)["result"]
                                                                              : Json::Value();
    }

 private:
    std::string socket_path() const { return m_dir.file("s"); }

    test::TempDir m_dir;
    pid_t m_pid = -1;
};

}  // namespace bench
