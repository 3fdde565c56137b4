#pragma once
// Parses command lines from a declaration of options, with defaults, usage and help. All values remain texts
// until read (see `Values`). An invalid command line ends the process with status 2.

#include <deque>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "utils/optparse/container.h"
#include "utils/optparse/values.h"

namespace optparse {

/** As the usage text: prints no usage, neither in the help nor with errors. */
inline constexpr const char* SUPPRESS_USAGE = "SUPPRESSUSAGE";

/** Exit status for an invalid command line. */
inline constexpr int USAGE_STATUS = 2;

class OptionParser : public OptionContainer {
 public:
    OptionParser() = default;

    /** "%prog" is replaced by the program's name. A leading "usage: " is dropped. */
    OptionParser& set_usage(const std::string& text);
    /** Without a version, there is no option --version. */
    OptionParser& set_version(const std::string& text);
    OptionParser& description(const std::string& text) override;
    const std::string& description() const override { return m_description; }
    OptionParser& set_closing_text(const std::string& text);
    /** Defaults to the last component of `argv[0]`. */
    OptionParser& set_prog(const std::string& name);
    OptionParser& set_add_help(bool on);
    OptionParser& set_add_version(bool on);
    /** If off, the first word that isn't an option ends the options. */
    OptionParser& set_mixed_args(bool on);
    /** Takes precedence over the option's own default. */
    OptionParser& set_default(const std::string& key, const std::string& text);
    /** The group must outlive the parser. Options added to the group later are ignored. */
    OptionParser& add_option_group(const OptionGroup& group);
    OptionParser& get_parser() override { return *this; }

    /** Each call starts over. The parser owns the result. */
    Values& parse_args(int argc, char const* const* argv);
    Values& parse_args(const std::vector<std::string>& args);

    const std::string& prog() const { return m_prog; }
    const std::map<std::string, std::string>& defaults() const { return m_defaults; }
    const Values& values() const { return m_values; }
    /** The words that aren't options, in order. */
    const std::vector<std::string>& leftover() const { return m_leftover; }

    /** "Usage: ", the usage and a line break; empty with `SUPPRESS_USAGE`. */
    std::string get_usage() const;
    std::string format_usage(const std::string& text) const;
    void print_usage(std::ostream& out = std::cout) const;
    std::string get_version() const;
    void print_version(std::ostream& out = std::cout) const;
    std::string format_help() const;
    void print_help() const;

    /** Prints usage and message on standard error, then ends the process with status 2. */
    [[noreturn]] void error(const std::string& text) const;
    /** Every exit goes through here. A program that must not exit throws from its override instead. */
    [[noreturn]] virtual void exit(int status = USAGE_STATUS) const;

 private:
    using Action = void (OptionParser::*)(const Option&, const std::string& opt, const std::string& value);
    static const std::map<std::string, Action> ACTIONS;

    void add_builtin_options();
    Option& add_option_in_front(const std::vector<std::string>& names);
    void parse_options();
    void apply_defaults(const std::list<Option>& options);
    void set_if_absent(const std::string& key, const std::string& text);

    void handle_short_opt(const std::string& opt, const std::string& word);
    void handle_long_opt(const std::string& text);
    const Option& lookup_short_opt(const std::string& opt) const;
    /** Accepts any unambiguous prefix of a name. */
    const Option& lookup_long_opt(const std::string& opt) const;
    std::string take_word();

    void process_opt(const Option& option, const std::string& opt, const std::string& value);
    void check_type(const Option& option, const std::string& opt, const std::string& value) const;
    void set_by_user(const Option& option, const std::string& text);
    void do_store(const Option& option, const std::string& opt, const std::string& value);
    void do_store_const(const Option& option, const std::string& opt, const std::string& value);
    void do_store_true(const Option& option, const std::string& opt, const std::string& value);
    void do_store_false(const Option& option, const std::string& opt, const std::string& value);
    void do_append(const Option& option, const std::string& opt, const std::string& value);
    void do_append_const(const Option& option, const std::string& opt, const std::string& value);
    void do_count(const Option& option, const std::string& opt, const std::string& value);
    void do_help(const Option& option, const std::string& opt, const std::string& value);
    void do_version(const Option& option, const std::string& opt, const std::string& value);
    void do_callback(const Option& option, const std::string& opt, const std::string& value);

    std::string m_usage = "%prog [options]";
    std::string m_version;
    std::string m_closing_text;
    std::string m_prog;
    bool m_add_help = true;
    bool m_add_version = true;
    bool m_mixed_args = true;
    bool m_has_builtins = false;
    std::map<std::string, std::string> m_defaults;
    Values m_values;
    std::vector<const OptionGroup*> m_groups;
    std::deque<std::string> m_remaining;
    std::vector<std::string> m_leftover;
};

}  // namespace optparse
