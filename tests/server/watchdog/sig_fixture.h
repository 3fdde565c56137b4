#pragma once
// The signal handler of the server, at work in the test program for the time of one test.

#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "server/watchdog/corvo_server_sig.h"
#include "support/temp_dir.h"

namespace test {

class SigTest : public testing::Test {
 public:
    SigTest() { corvo::server::get_sig_handler()->init((m_dir.path() + "/").c_str(), m_dir.file("log")); }

    std::string report() const { return read_file(m_dir.file("cvdump.json")); }
    static struct sigaction action_of(int signum) {
        struct sigaction action {};
        sigaction(signum, nullptr, &action);
        return action;
    }

    /** Whether the server takes it, and learns what it interrupts. */
    static bool is_taken(int signum) {
        const struct sigaction action = action_of(signum);
        return action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL && action.sa_flags & SA_SIGINFO;
    }

    TempDir m_dir;
};

/** All signals of the server go to its handler while this lives. */
class RegisteredSignals {
 public:
    RegisteredSignals() { corvo::server::SigHandler::register_child_signals(); }
    RegisteredSignals(const RegisteredSignals&) = delete;
    RegisteredSignals& operator=(const RegisteredSignals&) = delete;
    ~RegisteredSignals() { corvo::server::SigHandler::unregister_child_sig(); }
};

}  // namespace test
