#include "utils/optparse/option.h"

#include <algorithm>
#include <cassert>
#include <complex>

#include "utils/optparse/option_parser.h"
#include "utils/optparse/text.h"

namespace optparse {
namespace {

constexpr size_t MAX_OPTION_COLUMN = 36;

template <typename T>
bool reads_as(const std::string& value) {
    std::istringstream in(value);
    T number{};
    return static_cast<bool>(in >> number);
}

struct NumericType {
    const char* type;
    bool (*reads)(const std::string&);
    const char* name;
};

constexpr NumericType NUMERIC_TYPES[] = {
    {"int", reads_as<int>, "integer"},
    {"long", reads_as<long long>, "integer"},
    {"float", reads_as<double>, "floating-point"},
    {"double", reads_as<double>, "floating-point"},
    {"complex", reads_as<std::complex<double>>, "complex"},
};

constexpr const char* ACTIONS_WITHOUT_VALUE[] = {
    "store_const", "store_true", "store_false", "append_const", "count", "help", "version", "callback",
};

}  // namespace

Option::Option(OptionParser& parser, const std::vector<std::string>& names) : m_parser(&parser) {
    std::string short_key;
    for (const std::string& name : names) {
        assert(name.size() > 1 && name[0] == '-');
        if (name.starts_with("--")) {
            const std::string long_name = name.substr(2);
            m_long_names.insert(long_name);
            if (m_key.empty()) m_key = str_replace(long_name, "-", "_");
        } else {
            const std::string short_name = name.substr(1, 1);
            m_short_names.insert(short_name);
            if (short_key.empty()) short_key = short_name;
        }
    }
    if (m_key.empty()) m_key = short_key;
}

Option& Option::action(const std::string& action) {
    m_action = action;
    if (std::find(std::begin(ACTIONS_WITHOUT_VALUE), std::end(ACTIONS_WITHOUT_VALUE), action) !=
        std::end(ACTIONS_WITHOUT_VALUE))
        m_value_count = 0;
    if (action == "callback") m_type.clear();
    return *this;
}

Option& Option::type(const std::string& type) {
    m_type = type;
    m_value_count = type.empty() ? 0 : 1;
    return *this;
}

Option& Option::key(const std::string& key) {
    m_key = key;
    return *this;
}

Option& Option::value_count(unsigned int count) {
    m_value_count = count;
    return *this;
}

Option& Option::const_text(const std::string& text) {
    m_const_text = text;
    return *this;
}

Option& Option::choices(const std::vector<std::string>& choices) {
    m_choices = choices;
    return type("choice");
}

Option& Option::help(const std::string& text) {
    m_help = text;
    return *this;
}

Option& Option::value_label(const std::string& label) {
    m_value_label = label;
    return *this;
}

Option& Option::callback(Callback& callback) {
    m_callback = &callback;
    return *this;
}

const std::string& Option::get_default() const {
    const auto& defaults = m_parser->defaults();
    auto found = defaults.find(m_key);
    return found == defaults.end() ? m_default_text : found->second;
}

std::string Option::check_type(const std::string& opt, const std::string& value) const {
    if (m_type == "choice") {
        if (std::find(m_choices.begin(), m_choices.end(), value) != m_choices.end()) return "";
        return "option " + opt + ": invalid choice: '" + value + "' (choose from " +
               str_join_trans(", ", m_choices, {"'", "'"}) + ")";
    }
    for (const NumericType& numeric : NUMERIC_TYPES)
        if (m_type == numeric.type && !numeric.reads(value))
            return "option " + opt + ": invalid " + numeric.name + " value: '" + value + "'";
    return "";
}

std::string Option::format_option_help(unsigned int indent) const {
    str_wrap short_wrap("-", "");
    str_wrap long_wrap("--", "");
    if (m_value_count == 1) {
        const std::string label = m_value_label.empty() ? to_upper(m_type) : m_value_label;
        short_wrap.second = " " + label;
        long_wrap.second = "=" + label;
    }
    std::string names = str_join_trans(", ", m_short_names, short_wrap);
    if (!m_short_names.empty() && !m_long_names.empty()) names += ", ";
    return std::string(indent, ' ') + names + str_join_trans(", ", m_long_names, long_wrap);
}

std::string Option::format_help(unsigned int indent) const {
    const size_t width = cols();
    const size_t option_width = std::min(width * 3 / 10, MAX_OPTION_COLUMN);
    std::string out = format_option_help(indent);
    const bool own_line = out.size() + 1 >= option_width;
    if (own_line)
        out += '\n';
    else
        out.resize(option_width, ' ');

    if (!m_help.empty())
        out += str_format(help_text(), option_width, width, false, own_line);
    else if (!own_line)
        out += '\n';
    return out;
}

std::string Option::help_text() const {
    std::string text = m_help;
    if (!get_default().empty()) text = str_replace(text, "%default", get_default());
    if (m_type == "choice") text = str_replace(text, "%choices", str_join_trans("|", m_choices, {}));
    return text;
}

}  // namespace optparse
