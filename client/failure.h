#pragma once
// How the program ends when it can't do what it was asked: one exception class per kind. main prints the text
// to stderr and derives the exit status.

#include <stdexcept>
#include <string>

namespace brumectl {

enum exit_status_e {
    EXIT_OK = 0,
    EXIT_ERROR = 1,  ///< an error reply, an unreadable reply, a file that can't be used
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

/** Nobody answers at the address; the text names the address and the reason. */
class NoDaemon : public Failure {
 public:
    explicit NoDaemon(const std::string& text, bool denied = false)
        : Failure(text, EXIT_NO_DAEMON), m_denied(denied) {}
    /** Whether somebody may be there whom this user may not contact. */
    bool is_denied() const { return m_denied; }

 private:
    bool m_denied;
};

/** The daemon closed a connection in the middle of an exchange. It may be gone. */
class BrokenOff : public Failure {
 public:
    using Failure::Failure;
};

class TimedOut : public Failure {
 public:
    explicit TimedOut(const std::string& text) : Failure(text, EXIT_TIMEOUT) {}
};

/** The command line makes no sense. */
class Usage : public Failure {
 public:
    explicit Usage(const std::string& text) : Failure(text, EXIT_USAGE) {}
};

/** The daemon replied with an error. The text is its `specific_err`, or else its general message. */
class ErrorReply : public Failure {
 public:
    static constexpr int METHOD_NOT_FOUND = -32601;

    ErrorReply(int code, const std::string& text) : Failure(text), m_code(code) {}
    /** The JSON-RPC code, such as METHOD_NOT_FOUND. */
    int code() const { return m_code; }

 private:
    int m_code;
};

}  // namespace brumectl
