#pragma once
// The real brumectl, run for one test.

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
    std::string out();
    std::string err() const;
    /** At a terminal. */
    void type(const std::string& keys) const;
    bool wait_for_out(const std::string& text);
    bool wait_for_err(const std::string& text) const;

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

}  // namespace test
