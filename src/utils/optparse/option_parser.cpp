#include "utils/optparse/option_parser.h"

#include <cassert>
#include <iterator>

#include "utils/optparse/text.h"

namespace optparse {

const std::map<std::string, OptionParser::Action> OptionParser::ACTIONS = {
    {"store", &OptionParser::do_store},           {"store_const", &OptionParser::do_store_const},
    {"store_true", &OptionParser::do_store_true}, {"store_false", &OptionParser::do_store_false},
    {"append", &OptionParser::do_append},         {"append_const", &OptionParser::do_append_const},
    {"count", &OptionParser::do_count},           {"help", &OptionParser::do_help},
    {"version", &OptionParser::do_version},       {"callback", &OptionParser::do_callback},
};

OptionParser& OptionParser::set_version(const std::string& text) {
    m_version = text;
    return *this;
}

OptionParser& OptionParser::description(const std::string& text) {
    m_description = text;
    return *this;
}

OptionParser& OptionParser::set_closing_text(const std::string& text) {
    m_closing_text = text;
    return *this;
}

OptionParser& OptionParser::set_prog(const std::string& name) {
    m_prog = name;
    return *this;
}

OptionParser& OptionParser::set_add_help(bool on) {
    m_add_help = on;
    return *this;
}

OptionParser& OptionParser::set_add_version(bool on) {
    m_add_version = on;
    return *this;
}

OptionParser& OptionParser::set_mixed_args(bool on) {
    m_mixed_args = on;
    return *this;
}

OptionParser& OptionParser::set_default(const std::string& key, const std::string& text) {
    m_defaults[key] = text;
    return *this;
}

OptionParser& OptionParser::add_option_group(const OptionGroup& group) {
    for (const auto& [name, option] : group.short_map())
        m_short_map[name] = option;
    for (const auto& [name, option] : group.long_map())
        m_long_map[name] = option;
    m_groups.push_back(&group);
    return *this;
}

Values& OptionParser::parse_args(int argc, char const* const* argv) {
    if (m_prog.empty() && argc > 0) m_prog = base_name(argv[0]);
    return parse_args(argc > 0 ? std::vector<std::string>(argv + 1, argv + argc)
                               : std::vector<std::string>());
}

Values& OptionParser::parse_args(const std::vector<std::string>& args) {
    m_values = Values();
    m_leftover.clear();
    m_remaining.assign(args.begin(), args.end());
    if (!m_has_builtins) add_builtin_options();

    parse_options();
    m_leftover.insert(m_leftover.end(), m_remaining.begin(), m_remaining.end());
    m_remaining.clear();

    for (const auto& [key, text] : m_defaults)
        set_if_absent(key, text);
    apply_defaults(m_options);
    for (const OptionGroup* group : m_groups)
        apply_defaults(group->options());
    return m_values;
}

void OptionParser::add_builtin_options() {
    m_has_builtins = true;
    if (m_add_help)
        add_option_in_front({"-h", "--help"}).action("help").help("show this help message and exit");
    if (m_add_version && !m_version.empty())
        add_option_in_front({"--version"}).action("version").help("show program's version number and exit");
}

Option& OptionParser::add_option_in_front(const std::vector<std::string>& names) {
    Option& option = add_option(names);
    m_options.splice(m_options.begin(), m_options, std::prev(m_options.end()));
    return option;
}

void OptionParser::parse_options() {
    while (!m_remaining.empty()) {
        const std::string word = m_remaining.front();
        if (word == "--") {
            m_remaining.pop_front();
            return;
        }
        if (word.starts_with("--")) {
            handle_long_opt(word.substr(2));
        } else if (word.starts_with("-") && word.size() > 1) {
            handle_short_opt(word.substr(1, 1), word);
        } else {
            m_leftover.push_back(take_word());
            if (!m_mixed_args) return;
        }
    }
}

void OptionParser::apply_defaults(const std::list<Option>& options) {
    for (const Option& option : options)
        if (!option.get_default().empty()) set_if_absent(option.key(), option.get_default());
}

void OptionParser::set_if_absent(const std::string& key, const std::string& text) {
    if (!m_values.is_set(key)) m_values.set(key, text);
}

void OptionParser::handle_short_opt(const std::string& opt, const std::string& word) {
    take_word();
    const Option& option = lookup_short_opt(opt);
    const std::string rest = word.substr(2);
    std::string value;
    if (option.value_count() == 1) {
        if (rest.empty() && m_remaining.empty()) error("-" + opt + " option requires an argument");
        value = rest.empty() ? take_word() : rest;
    } else if (!rest.empty()) {
        m_remaining.push_front("-" + rest);
    }
    process_opt(option, "-" + opt, value);
}

void OptionParser::handle_long_opt(const std::string& text) {
    take_word();
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const std::string opt = "--" + name;
    const Option& option = lookup_long_opt(name);
    const size_t count = option.value_count();

    std::vector<std::string> values;
    if (equals != std::string::npos)
        values.push_back(text.substr(equals + 1));
    else
        while (values.size() < count && !m_remaining.empty())
            values.push_back(take_word());

    if (count == 1 && (values.empty() || values[0].empty())) error(opt + " option requires an argument");
    if (values.size() < count) error(opt + " not enough arguments");

    if (count == 0) process_opt(option, opt, "");
    for (size_t i = 0; i < count; ++i)
        process_opt(option, opt, values[i]);
}

const Option& OptionParser::lookup_short_opt(const std::string& opt) const {
    auto found = m_short_map.find(opt);
    if (found == m_short_map.end()) error("no such option: -" + opt);
    return *found->second;
}

const Option& OptionParser::lookup_long_opt(const std::string& opt) const {
    std::vector<std::string> names;
    // In key order, a name comes before all longer names that start with it.
    for (auto it = m_long_map.lower_bound(opt); it != m_long_map.end() && it->first.starts_with(opt); ++it) {
        names.push_back(it->first);
        if (it->first == opt) break;
    }
    if (names.empty()) error("no such option: --" + opt);
    if (names.size() > 1)
        error("ambiguous option: --" + opt + " (" + str_join_trans(", ", names, {"--", ""}) + "?)");
    return *m_long_map.at(names[0]);
}

std::string OptionParser::take_word() {
    std::string word = std::move(m_remaining.front());
    m_remaining.pop_front();
    return word;
}

void OptionParser::process_opt(const Option& option, const std::string& opt, const std::string& value) {
    auto action = ACTIONS.find(option.action());
    assert(action != ACTIONS.end());
    (this->*action->second)(option, opt, value);
}

void OptionParser::check_type(const Option& option, const std::string& opt, const std::string& value) const {
    const std::string message = option.check_type(opt, value);
    if (!message.empty()) error(message);
}

void OptionParser::set_by_user(const Option& option, const std::string& text) {
    m_values.set(option.key(), text);
    m_values.is_set_by_user(option.key(), true);
}

void OptionParser::do_store(const Option& option, const std::string& opt, const std::string& value) {
    check_type(option, opt, value);
    set_by_user(option, value);
}

void OptionParser::do_store_const(const Option& option, const std::string&, const std::string&) {
    set_by_user(option, option.const_text());
}

void OptionParser::do_store_true(const Option& option, const std::string&, const std::string&) {
    set_by_user(option, "1");
}

void OptionParser::do_store_false(const Option& option, const std::string&, const std::string&) {
    set_by_user(option, "0");
}

void OptionParser::do_append(const Option& option, const std::string& opt, const std::string& value) {
    do_store(option, opt, value);
    m_values.append(option.key(), value);
}

void OptionParser::do_append_const(const Option& option, const std::string&, const std::string&) {
    set_by_user(option, option.const_text());
    m_values.append(option.key(), option.const_text());
}

void OptionParser::do_count(const Option& option, const std::string&, const std::string&) {
    const int count = m_values.get(option.key());
    set_by_user(option, std::to_string(count + 1));
}

void OptionParser::do_help(const Option&, const std::string&, const std::string&) {
    print_help();
    exit(0);
}

void OptionParser::do_version(const Option&, const std::string&, const std::string&) {
    print_version();
    exit(0);
}

void OptionParser::do_callback(const Option& option, const std::string& opt, const std::string& value) {
    if (!option.callback()) return;
    check_type(option, opt, value);
    (*option.callback())(option, opt, value, *this);
}

}  // namespace optparse
