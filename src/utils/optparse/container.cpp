#include "utils/optparse/container.h"

#include <utility>

namespace optparse {

OptionContainer& OptionContainer::description(const std::string& text) {
    m_description = text;
    return *this;
}

Option& OptionContainer::add_option(const std::string& name) {
    return add_option(std::vector<std::string>{name});
}

Option& OptionContainer::add_option(const std::string& name, const std::string& name2) {
    return add_option(std::vector<std::string>{name, name2});
}

Option& OptionContainer::add_option(const std::string& name, const std::string& name2,
                                    const std::string& name3) {
    return add_option(std::vector<std::string>{name, name2, name3});
}

Option& OptionContainer::add_option(const std::vector<std::string>& names) {
    Option& option = m_options.emplace_back(get_parser(), names);
    for (const std::string& name : option.short_names())
        m_short_map[name] = &option;
    for (const std::string& name : option.long_names())
        m_long_map[name] = &option;
    return option;
}

std::string OptionContainer::format_option_help(unsigned int indent) const {
    std::string out;
    for (const Option& option : m_options)
        if (option.help() != SUPPRESS_HELP) out += option.format_help(indent);
    return out;
}

OptionGroup::OptionGroup(OptionParser& parser, std::string title, std::string description)
    : OptionContainer(std::move(description)), m_parser(parser), m_title(std::move(title)) {}

}  // namespace optparse
