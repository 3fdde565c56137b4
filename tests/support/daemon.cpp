#include "support/daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace test {
namespace fs = std::filesystem;

namespace {

struct ProcStat {
    char state = 'X';
    pid_t parent = -1;
};

/** The defaults for a process that is gone. */
ProcStat stat_of(pid_t pid) {
    const std::string text = read_file("/proc/" + std::to_string(pid) + "/stat");
    ProcStat stat;
    const size_t name_end = text.rfind(')');
    if (name_end != std::string::npos)
        std::istringstream(text.substr(name_end + 1)) >> stat.state >> stat.parent;
    return stat;
}

}  // namespace

Daemon::Daemon(DaemonSetup setup)
    : m_log(setup.log_file.empty() ? m_dir.file("log") : setup.log_file), m_tcp(setup.tcp) {
    if (m_tcp) m_port = free_port();
    fs::create_directory(cwd());
    if (!setup.engine_dir.empty()) fs::create_directory_symlink(setup.engine_dir, m_dir.file("lib"));
    for (const auto& [name, content] : setup.files)
        m_dir.write("bin/" + name, content);
    start(setup);
    if (setup.wait_ready) await_ready();
}

Daemon::~Daemon() {
    if (!running()) return;
    std::vector<pid_t> family = descendants(m_pid);
    kill(m_pid, SIGKILL);
    for (pid_t pid : family)
        kill(pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

void Daemon::start(const DaemonSetup& setup) {
    const std::string where = m_tcp ? "127.0.0.1:" + std::to_string(m_port) : socket_path();
    std::vector<std::string> args = {BRUMECPD_COMMAND, "-m", setup.mode, "-s", where, "-l", m_log};
    if (!setup.watchdog) args.push_back("--wd_disable");
    args.insert(args.end(), setup.args.begin(), setup.args.end());
    m_pid = fork();
    if (m_pid < 0) throw std::runtime_error("fork failed");
    if (m_pid == 0) exec_child(setup, args);
}

void Daemon::exec_child(const DaemonSetup& setup, const std::vector<std::string>& args) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(cwd().c_str()) != 0) _exit(126);
    setenv("TEST_ENGINE_SCRIPT", "script", 1);
    setenv("TEST_ENGINE_LOG", "calls", 1);
    for (const auto& [name, value] : setup.env)
        setenv(name.c_str(), value.c_str(), 1);
    int out = open(m_dir.file("stdout").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    int err = open(m_dir.file("stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(out, 1);
    dup2(err, 2);
    closefrom(3);
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    if (setup.before_exec) setup.before_exec();
    execvp(argv[0], argv.data());
    _exit(127);
}

void Daemon::await_ready() {
    const bool ready = eventually([this] { return !running() || answers(0); }, 30000);
    if (!ready || !running()) throw std::runtime_error("the daemon doesn't answer: " + log() + err());
}

bool Daemon::answers(int timeout_ms) const {
    const auto asked_once = [this] {
        try {
            return !raw(request_text("ping"), 2000).empty();
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    return eventually(asked_once, timeout_ms);
}

std::string Daemon::raw(const std::string& text, int timeout_ms) const {
    if (!m_tcp) return UnixClient(socket_path()).ask(text, timeout_ms);
    TcpClient client(m_port);
    client.send(text + "\n");
    return client.receive_all(timeout_ms);
}

Json::Value Daemon::call(const std::string& method, const Json::Value& params) const {
    return parse(raw(request_text(method, params)));
}

Json::Value Daemon::result(const std::string& method, const Json::Value& params) const {
    Json::Value reply = call(method, params);
    if (!reply.isMember("result")) throw std::runtime_error(method + " failed: " + reply.toStyledString());
    return reply["result"];
}

std::string Daemon::failure(const std::string& method, const Json::Value& params) const {
    Json::Value reply = call(method, params);
    if (!reply.isMember("error")) throw std::runtime_error(method + " succeeded: " + reply.toStyledString());
    return reply["error"]["specific_err"].asString();
}

bool Daemon::wait_for_log(const std::string& text, int timeout_ms) const {
    return eventually([&] { return log().find(text) != std::string::npos; }, timeout_ms);
}

void Daemon::signal(int signum) const {
    kill(m_pid, signum);
}

int Daemon::wait_exit(int timeout_ms) {
    return eventually([this] { return !running(); }, timeout_ms) ? m_status : -1;
}

bool Daemon::running() {
    if (m_pid <= 0) return false;
    if (m_status == -1) {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) m_status = status;
    }
    return m_status == -1;
}

int Daemon::stop() {
    signal(SIGTERM);
    return wait_exit();
}

bool is_running(pid_t pid) {
    const char state = stat_of(pid).state;
    return state != 'Z' && state != 'X';
}

std::vector<pid_t> descendants(pid_t parent) {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (!std::all_of(name.begin(), name.end(), ::isdigit)) continue;
        pid_t pid = std::stoi(name);
        for (pid_t up = stat_of(pid).parent; up > 1; up = stat_of(up).parent)
            if (up == parent) {
                found.push_back(pid);
                break;
            }
    }
    return found;
}

size_t open_descriptors(pid_t pid) {
    size_t count = 0;
    std::error_code ignored;
    for (auto it = fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ignored);
         it != fs::directory_iterator(); ++it)
        ++count;
    return count;
}

}  // namespace test
