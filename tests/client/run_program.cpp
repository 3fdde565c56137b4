#include "client/run_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "support/client.h"

namespace test {

Program::Program(const std::vector<std::string>& words, const ProgramSetup& setup) {
    m_dir.write("in", setup.input);
    winsize size = {24, 80, 0, 0};
    m_pid = setup.terminal ? forkpty(&m_terminal, nullptr, nullptr, &size) : fork();
    if (m_pid == 0) exec(words, setup);
}

void Program::exec(const std::vector<std::string>& words, const ProgramSetup& setup) const {
    if (!setup.terminal) {
        dup2(open(m_dir.file("in").c_str(), O_RDONLY), 0);
        dup2(open(m_dir.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
        dup2(open(m_dir.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    }
    // In a background job we ignore these, and it would, too.
    for (int signum : {SIGINT, SIGHUP})
        signal(signum, SIG_DFL);
    setenv("BRUMECTL_SOCKET", setup.socket.c_str(), 1);
    setenv("TERM", "xterm", 1);
    setenv("HOME", m_dir.path().c_str(), 1);
    for (const auto& [name, value] : setup.env)
        setenv(name.c_str(), value.c_str(), 1);
    if (setup.before_exec) setup.before_exec();
    std::vector<std::string> line = {BRUMECTL_COMMAND};
    line.insert(line.end(), words.begin(), words.end());
    std::vector<char*> argv;
    argv.reserve(line.size() + 1);
    for (std::string& word : line)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

Program::~Program() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    if (m_terminal >= 0) close(m_terminal);
}

int Program::wait() {
    int status = 0;
    if (!eventually([&] { return out(), waitpid(m_pid, &status, WNOHANG) == m_pid; }, 30000))
        throw std::runtime_error("brumectl doesn't end; it said: " + out() + err());
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int Program::end(int signum) {
    kill(m_pid, signum);
    return wait();
}

std::string Program::out() {
    if (m_terminal < 0) return read_file(m_dir.file("out"));
    pollfd fd = {m_terminal, POLLIN, 0};
    char piece[4096];
    while (poll(&fd, 1, 0) > 0) {
        ssize_t size = read(m_terminal, piece, sizeof(piece));
        if (size <= 0) break;  // the other side is closed
        m_shown.append(piece, static_cast<size_t>(size));
    }
    return m_shown;
}

std::string Program::err() const {
    return read_file(m_dir.file("err"));
}

void Program::type(const std::string& keys) const {
    if (write(m_terminal, keys.data(), keys.size()) < 0) throw std::runtime_error("nobody at the terminal");
}

bool Program::wait_for_out(const std::string& text, size_t from) {
    return eventually([&] { return out().find(text, from) != std::string::npos; });
}

bool Program::wait_for_err(const std::string& text, size_t from) const {
    return eventually([&] { return err().find(text, from) != std::string::npos; });
}

Outcome brumectl(const std::vector<std::string>& words, const ProgramSetup& setup) {
    Program program(words, setup);
    int status = program.wait();
    return {status, program.out(), program.err()};
}

void expect_step(const Step& step, ProgramSetup setup) {
    SCOPED_TRACE(testing::PrintToString(step.words) + " " + step.input);
    setup.input = step.input;
    const Outcome outcome = brumectl(step.words, setup);
    EXPECT_EQ(outcome.status, step.status) << outcome.err;
    EXPECT_THAT(outcome.out, step.out);
    EXPECT_THAT(outcome.err, step.err);
    EXPECT_EQ((outcome.out + outcome.err).find('\x1b'), std::string::npos);
}

void expect_steps(const std::vector<Step>& steps, const ProgramSetup& setup) {
    for (const Step& step : steps)
        expect_step(step, setup);
}

}  // namespace test
