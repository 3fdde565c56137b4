#pragma once
// What all words of the program share: which daemon to ask, and how to show the reply.

#include <memory>
#include <string>
#include <vector>

#include "client/text/method_table.h"
#include "client/text/terminal.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** The options that precede the word. */
struct Options {
    std::string address = {};  ///< empty: look in the usual places
    double timeout_sec = 10;
    bool json = false;      ///< show replies unchanged instead of text for people
    bool result = false;    ///< JSON as well, but only the reply's result
    bool in_shell = false;  ///< the line comes from the shell, which can't start another
};

class Context {
 public:
    explicit Context(const Options& options) : m_options(options), m_out(stdout), m_err(stderr) {}

    /** Created at first use; connects with the first request. Throws Usage for a bad address. */
    Daemon& daemon();
    /** Where `daemon` looks, in this order. Throws Usage for a bad address. */
    std::vector<Address> addresses() const;
    /** A separate one, for requests that must not wait behind another's reply. */
    std::unique_ptr<Daemon> new_daemon() const;
    /**
     * The methods described by the loaded engine, queried once; null if there are none. With `quietly`,
     * the engine gets only a moment to reply, and nothing is thrown, even on Ctrl-C. Otherwise throws
     * like `engine_methods`.
     */
    const MethodTable* engine_methods(bool quietly);
    const Options& options() const { return m_options; }
    int timeout_ms() const { return static_cast<int>(m_options.timeout_sec * 1000); }
    bool json() const { return m_options.json || m_options.result; }
    const Terminal& out() const { return m_out; }
    const Terminal& err() const { return m_err; }
    /** Prints on a separate line; at a terminal, indented and with harmless texts. Throws like `print`. */
    void print_json(const Json::Value& value) const;
    /**
     * Asks, and prints the reply as it came; with --result the result alone, and nothing of an error.
     * @throws ErrorReply if that's what it is, and what Daemon::call throws
     */
    void ask_and_print_reply(const std::string& method, const Json::Value& params);
    /** The same with another `id` than the one that it was asked with: that of whoever wrote the request. */
    void ask_and_print_reply(const std::string& method, const Json::Value& params, const Json::Value& id);
    /** Prints a line on stderr, "brumectl: text", after everything printed so far. Throws Interrupted. */
    void complain(const std::string& text) const;

 private:
    void print_result(const std::string& method, const Json::Value& params);
    void print_reply(const Json::Value& reply) const;

    const Options& m_options;  ///< filled while the command line is parsed, after this object is created
    Terminal m_out;
    Terminal m_err;
    std::unique_ptr<Daemon> m_daemon;
    std::unique_ptr<MethodTable> m_engine_methods;
};

}  // namespace brumectl
