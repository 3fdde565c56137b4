#pragma once
// The real brumectl, run for one test.

#include <gmock/gmock.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace test {

struct ProgramSetup {
    std::string socket = {};  ///< the daemon's address, in $BRUMECTL_SOCKET
    std::string input = {};
    std::map<std::string, std::string> env = {};
    std::function<void()> before_exec = {};  ///< runs last in the new process; system calls only
    bool terminal = false;  ///< all three streams are a terminal; `type` writes to it, `out` reads it
};

class Program {
 public:
    Program(const std::vector<std::string>& words, const ProgramSetup& setup);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    /** Kills what still runs. */
    ~Program();

    pid_t pid() const { return m_pid; }
    /** Its exit status; 128 and the signal's number if one ended it. @throws std::runtime_error if it goes on
     */
    int wait();
    /** Sends it the signal, and waits. */
    int end(int signum);
    std::string out();
    std::string err() const;
    /** At a terminal. */
    void type(const std::string& keys) const;
    /** Behind the first `from` bytes. */
    bool wait_for_out(const std::string& text, size_t from = 0);
    bool wait_for_err(const std::string& text, size_t from = 0) const;

 private:
    void exec(const std::vector<std::string>& words, const ProgramSetup& setup) const;

    TempDir m_dir;
    pid_t m_pid = -1;
    int m_terminal = -1;
    std::string m_shown;
};

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

/** Runs it to its end. */
Outcome brumectl(const std::vector<std::string>& words, const ProgramSetup& setup = {});

/** What is typed, and what must come of it: a text alone is all there may be. */
struct Step {
    std::vector<std::string> words;
    int status = 0;
    testing::Matcher<std::string> out = testing::_;
    testing::Matcher<std::string> err = "";
    std::string input = {};
};

/** Nor may anything be written that controls a terminal. */
void expect_step(const Step& step, ProgramSetup setup = {});
/** One after the other. */
void expect_steps(const std::vector<Step>& steps, const ProgramSetup& setup = {});

}  // namespace test
