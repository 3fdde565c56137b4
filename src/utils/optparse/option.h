#pragma once
// One declared option. Setters return the option, so a declaration is a single chain of calls.

#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace optparse {

class Option;
class OptionParser;

/** As an option's help text: hides the option from the help. */
inline constexpr const char* SUPPRESS_HELP = "SUPPRESSHELP";

/** Called by an option with the action "callback". Owned by the caller; must outlive the parser. */
class Callback {
 public:
    virtual ~Callback() = default;
    /** `opt` is the option as the user wrote it, including dashes. */
    virtual void operator()(const Option& option, const std::string& opt, const std::string& value,
                            OptionParser& parser) = 0;
};

class Option {
 public:
    /**
     * Names start with "--" (long), or with "-" followed by one character (short). The key is the first long
     * name with each "-" replaced by "_", or the first short name if there is no long one.
     */
    Option(OptionParser& parser, const std::vector<std::string>& names);
    Option(const Option&) = delete;
    Option& operator=(const Option&) = delete;
    virtual ~Option() = default;

    /**
     * "store", "store_const", "store_true", "store_false", "append", "append_const", "count", "help",
     * "version" or "callback". All but "store" and "append" set the value count to 0.
     */
    Option& action(const std::string& action);
    /**
     * "string", "int", "long", "float", "double", "choice" or "complex". Sets the value count to 1, or to 0
     * for an empty type.
     */
    Option& type(const std::string& type);
    Option& key(const std::string& key);
    /** Accepts any streamable value; stored as text. */
    template <typename T>
    Option& set_default(const T& value) {
        std::ostringstream out;
        out << value;
        m_default_text = out.str();
        return *this;
    }
    Option& value_count(unsigned int count);
    Option& const_text(const std::string& text);
    /** Sets the type to "choice". */
    Option& choices(const std::vector<std::string>& choices);
    /** "%default" and, for a choice, "%choices" are replaced by the respective texts. */
    Option& help(const std::string& text);
    /** Placeholder for the value in the help; defaults to the type in capitals. */
    Option& value_label(const std::string& label);
    Option& callback(Callback& callback);

    const std::set<std::string>& short_names() const { return m_short_names; }
    const std::set<std::string>& long_names() const { return m_long_names; }
    const std::string& action() const { return m_action; }
    const std::string& type() const { return m_type; }
    const std::string& key() const { return m_key; }
    /** The parser's default for the key if it has one, else the option's own. */
    const std::string& get_default() const;
    unsigned int value_count() const { return m_value_count; }
    const std::string& const_text() const { return m_const_text; }
    const std::vector<std::string>& choices() const { return m_choices; }
    const std::string& help() const { return m_help; }
    const std::string& value_label() const { return m_value_label; }
    /** Null if there is none. */
    Callback* callback() const { return m_callback; }

    /** Returns an error text if `value` doesn't fit the type, else an empty text. */
    std::string check_type(const std::string& opt, const std::string& value) const;

    /** Names and placeholders: the left column of the help. */
    std::string format_option_help(unsigned int indent = 2) const;
    /** The option's lines in the help. */
    std::string format_help(unsigned int indent = 2) const;

 private:
    std::string help_text() const;

    OptionParser* m_parser;
    std::set<std::string> m_short_names;
    std::set<std::string> m_long_names;
    std::string m_action = "store";
    std::string m_type = "string";
    std::string m_key;
    std::string m_default_text;
    unsigned int m_value_count = 1;
    std::string m_const_text;
    std::vector<std::string> m_choices;
    std::string m_help;
    std::string m_value_label;
    Callback* m_callback = nullptr;
};

}  // namespace optparse
