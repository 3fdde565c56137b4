#pragma once
// What every word of the program shares: whom to ask, how to show the answer.

#include <memory>
#include <string>
#include <vector>

#include "client/text/method_table.h"
#include "client/text/terminal.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** The options that stand before the word. */
struct Options {
    std::string address = {};  ///< empty: look in the usual places
    double timeout_sec = 10;
    bool json = false;      ///< answers unchanged instead of text for people
    bool result = false;    ///< JSON, too, but of an answer the result alone
    bool in_shell = false;  ///< the line comes from the shell, which can't begin another
};

class Context {
 public:
    explicit Context(const Options& options) : m_options(options), m_out(stdout), m_err(stderr) {}

    /** Made at first use; nothing is connected before the first request. @throws Usage for a bad address */
    Daemon& daemon();
    /** Where `daemon` looks, in this order. @throws Usage for a bad address */
    std::vector<Address> addresses() const;
    /** One of its own, for what must not wait behind another's answer. */
    std::unique_ptr<Daemon> new_daemon() const;
    /**
     * What the loaded engine describes, asked for once; null for nothing. `quietly`: it has a moment to
     * answer, and nothing is thrown, by Ctrl-C neither. @throws as `engine_methods` otherwise
     */
    const MethodTable* engine_methods(bool quietly);
    const Options& options() const { return m_options; }
    int timeout_ms() const { return static_cast<int>(m_options.timeout_sec * 1000); }
    bool json() const { return m_options.json || m_options.result; }
    const Terminal& out() const { return m_out; }
    const Terminal& err() const { return m_err; }
    /** On a line of its own; indented and harmless where people read it, at a terminal. @throws as `print` */
    void print_json(const Json::Value& value) const;
    /**
     * Asks, and prints the reply as it came; with --result the result alone, and nothing of an error.
     * @throws ErrorReply if that's what it is, and what Daemon::call throws
     */
    void ask_and_print_reply(const std::string& method, const Json::Value& params);
    /** The same with another `id` than the one that it was asked with: that of whoever wrote the request. */
    void ask_and_print_reply(const std::string& method, const Json::Value& params, const Json::Value& id);
    /** A line on stderr: "brumectl: text", behind what has been printed. @throws Interrupted */
    void complain(const std::string& text) const;

 private:
    void print_result(const std::string& method, const Json::Value& params);
    void print_reply(const Json::Value& reply) const;

    const Options& m_options;  ///< filled while the command line is read, after this is made
    Terminal m_out;
    Terminal m_err;
    std::unique_ptr<Daemon> m_daemon;
    std::unique_ptr<MethodTable> m_engine_methods;
};

}  // namespace brumectl
