#pragma once
// Command lines from a declaration of options: parsing, defaults, usage and help. All values are texts until
// they are read (`Values`). A command line that is wrong ends the process with status 2.

#include <deque>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "utils/optparse/container.h"
#include "utils/optparse/values.h"

namespace optparse {

/** As the usage: there is none, neither in the help nor with an error. */
inline constexpr const char* SUPPRESS_USAGE = "SUPPRESSUSAGE";

/** What the process ends with after a wrong command line. */
inline constexpr int USAGE_STATUS = 2;

class OptionParser : public OptionContainer {
 public:
    OptionParser() = default;

    /** "%prog" stands for the program's name. A leading "usage: " is dropped. */
    OptionParser& set_usage(const std::string& text);
    /** Without a version there is no option --version. */
    OptionParser& set_version(const std::string& text);
    OptionParser& description(const std::string& text) override;
    const std::string& description() const override { return m_description; }
    OptionParser& set_closing_text(const std::string& text);
    /** By default the last component of `argv[0]`. */
    OptionParser& set_prog(const std::string& name);
    OptionParser& set_add_help(bool on);
    OptionParser& set_add_version(bool on);
    /** Off: the first word that is no option ends the options. */
    OptionParser& set_mixed_args(bool on);
    /** Takes precedence over the default of the option itself. */
    OptionParser& set_default(const std::string& key, const std::string& text);
    /** The group must outlive the parser; options added to it later aren't seen. */
    OptionParser& add_option_group(const OptionGroup& group);
    OptionParser& get_parser() override { return *this; }

    /** A further call starts anew. The result belongs to the parser. */
    Values& parse_args(int argc, char const* const* argv);
    Values& parse_args(const std::vector<std::string>& args);

    const std::string& prog() const { return m_prog; }
    const std::map<std::string, std::string>& defaults() const { return m_defaults; }
    const Values& values() const { return m_values; }
    /** The words that are no options, in order. */
    const std::vector<std::string>& leftover() const { return m_leftover; }

    /** "Usage: ", the usage and a line break; empty with `SUPPRESS_USAGE`. */
    std::string get_usage() const;
    std::string format_usage(const std::string& text) const;
    void print_usage(std::ostream& out = std::cout) const;
    std::string get_version() const;
    void print_version(std::ostream& out = std::cout) const;
    std::string format_help() const;
    void print_help() const;

    /** Usage and message on standard error, then the end of the process with status 2. */
    [[noreturn]] void error(const std::string& text) const;
    /** Where every end of the process comes through; a program that must go on throws here instead. */
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
    /** Any unique beginning of a name will do. */
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
