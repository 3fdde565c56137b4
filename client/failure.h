#pragma once
// How the program ends when it can't do what it was asked. One exception a kind of ending; main prints the
// text to stderr and turns it into the exit status.

#include <stdexcept>
#include <string>

namespace brumectl {

enum exit_status_e {
    EXIT_OK = 0,
    EXIT_ERROR = 1,  ///< the daemon's error reply, a reply that can't be read, a file that can't be used
    EXIT_USAGE = 2,
    EXIT_NO_DAEMON = 3,
    EXIT_TIMEOUT = 4,
};

/** The text is for people, without a newline and without the program's name. */
class Failure : public std::runtime_error {
 public:
    explicit Failure(const std::string& text, exit_status_e status = EXIT_ERROR)
        : std::runtime_error(text), m_status(status) {}
    exit_status_e status() const { return m_status; }

 private:
    exit_status_e m_status;
};

/** Nobody answers at the address; the text names it and the reason. */
class NoDaemon : public Failure {
 public:
    explicit NoDaemon(const std::string& text, bool denied = false)
        : Failure(text, EXIT_NO_DAEMON), m_denied(denied) {}
    /** Somebody may be there whom this user may not ask. */
    bool is_denied() const { return m_denied; }

 private:
    bool m_denied;
};

/** The daemon ended a connection in the middle of an exchange. It may be gone. */
class BrokenOff : public Failure {
 public:
    using Failure::Failure;
};

class TimedOut : public Failure {
 public:
    explicit TimedOut(const std::string& text) : Failure(text, EXIT_TIMEOUT) {}
};

/** What was typed can't be meant. */
class Usage : public Failure {
 public:
    explicit Usage(const std::string& text) : Failure(text, EXIT_USAGE) {}
};

/** The daemon answered with an error. The text is its `specific_err`, else its general message. */
class ErrorReply : public Failure {
 public:
    ErrorReply(int code, const std::string& text) : Failure(text), m_code(code) {}
    /** JSON-RPC's, such as -32601 for an unknown method. */
    int code() const { return m_code; }

 private:
    int m_code;
};

}  // namespace brumectl
