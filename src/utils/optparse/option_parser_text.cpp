// The parser's texts: usage, version, help and errors.

#include <cstdlib>

#include "utils/optparse/option_parser.h"
#include "utils/optparse/text.h"

namespace optparse {
namespace {

constexpr size_t GROUP_INDENT = 4;

}  // namespace

OptionParser& OptionParser::set_usage(const std::string& text) {
    const std::string prefix = "USAGE: ";
    m_usage = to_upper(text.substr(0, prefix.size())) == prefix ? text.substr(prefix.size()) : text;
    return *this;
}

std::string OptionParser::get_usage() const {
    return m_usage == SUPPRESS_USAGE ? "" : format_usage(str_replace(m_usage, "%prog", m_prog));
}

std::string OptionParser::format_usage(const std::string& text) const {
    return "Usage: " + text + "\n";
}

void OptionParser::print_usage(std::ostream& out) const {
    out << get_usage();
}

std::string OptionParser::get_version() const {
    return str_replace(m_version, "%prog", m_prog);
}

void OptionParser::print_version(std::ostream& out) const {
    out << get_version() << "\n";
}

std::string OptionParser::format_help() const {
    const size_t width = cols();
    std::string out;
    if (m_usage != SUPPRESS_USAGE) out += get_usage() + "\n";
    if (!m_description.empty()) out += str_format(m_description, 0, width) + "\n";
    out += "Options:\n" + format_option_help();

    const size_t group_width = width > GROUP_INDENT ? width - GROUP_INDENT : 0;
    for (const OptionGroup* group : m_groups) {
        out += "\n  " + group->title() + ":\n";
        if (!group->description().empty())
            out += str_format(group->description(), GROUP_INDENT, group_width) + "\n";
        out += group->format_option_help(GROUP_INDENT);
    }
    if (!m_closing_text.empty()) out += "\n" + str_format(m_closing_text, 0, width);
    return out;
}

void OptionParser::print_help() const {
    std::cout << format_help();
}

void OptionParser::error(const std::string& text) const {
    print_usage(std::cerr);
    std::cerr << m_prog << ": error: " << text << std::endl;
    exit();
    std::abort();  // not reached: g++ doesn't trust [[noreturn]] on a virtual function
}

void OptionParser::exit(int status) const {
    std::exit(status);
}

}  // namespace optparse
