#pragma once
// The real daemon, started for one test in a folder of its own and gone afterwards.

#include <json/value.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/client.h"
#include "support/temp_dir.h"

namespace test {

struct DaemonSetup {
    std::vector<std::string> args = {};  ///< behind -m … -s … -l …
    /** Made reachable as ../lib; empty: no engine there. A scripted one has `script` and `calls` in the
     * working directory. */
    std::string engine_dir = {};
    std::map<std::string, std::string> env = {};    ///< added to the environment
    std::map<std::string, std::string> files = {};  ///< name and content, put into the working directory
    bool tcp = false;
    bool watchdog = false;   ///< false adds --wd_disable
    bool wait_ready = true;  ///< until `ping` is answered
    std::string mode = "us";
    std::string log_file = {};               ///< empty: `log` in the test's folder
    std::function<void()> before_exec = {};  ///< runs last in the new process; system calls only
};

class Daemon {
 public:
    explicit Daemon(DaemonSetup setup = {});
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    /** Ends what still runs, descendants too. */
    ~Daemon();

    /** The started process: with the watchdog on, the supervising parent. */
    pid_t pid() const { return m_pid; }
    uint16_t port() const { return m_port; }
    std::string socket_path() const { return m_dir.file("s"); }
    std::string log_path() const { return m_log; }
    std::string log() const { return read_file(m_log); }
    std::string out() const { return read_file(m_dir.file("stdout")); }
    std::string err() const { return read_file(m_dir.file("stderr")); }
    const TempDir& dir() const { return m_dir; }
    /** The daemon's working directory. */
    std::string cwd() const { return m_dir.file("bin"); }
    void script(const std::string& text) const { m_dir.write("bin/script", text); }
    std::string engine_calls() const { return read_file(m_dir.file("bin/calls")); }

    /** Whether it does before the time is over. */
    bool answers(int timeout_ms = 10000) const;
    /** Sends a text and gives the reply's text, over the transport that the daemon was started with. */
    std::string raw(const std::string& text, int timeout_ms = 20000) const;
    /** The whole reply to one request. */
    Json::Value call(const std::string& method, const Json::Value& params = Json::Value()) const;
    /** The result of a request that must succeed. @throws std::runtime_error with the reply otherwise */
    Json::Value result(const std::string& method, const Json::Value& params = Json::Value()) const;
    /** `error.specific_err` of a request that must fail. @throws std::runtime_error with the reply otherwise
     */
    std::string failure(const std::string& method, const Json::Value& params = Json::Value()) const;

    bool wait_for_log(const std::string& text, int timeout_ms = 10000) const;
    void signal(int signum) const;
    /** The wait status, or -1 when it still runs after the time-out. */
    int wait_exit(int timeout_ms = 20000);
    bool running();
    /** Stops it by SIGTERM and gives the wait status. */
    int stop();

 private:
    void start(const DaemonSetup& setup);
    void exec_child(const DaemonSetup& setup, const std::vector<std::string>& args) const;
    void await_ready();

    TempDir m_dir;
    std::string m_log;
    pid_t m_pid = -1;
    int m_status = -1;
    bool m_tcp = false;
    uint16_t m_port = 0;
};

/** Whether a process is there and hasn't ended. Where nobody reaps orphans their zombies stay: `kill(pid, 0)`
 * takes those for alive. */
bool is_running(pid_t pid);
/** The parent's children, grandchildren and so on, from /proc. */
std::vector<pid_t> descendants(pid_t parent);
/** Number of open descriptors of a process. */
size_t open_descriptors(pid_t pid);

}  // namespace test
