#pragma once
// A set of options with a description. There are two kinds: the parser itself, and a titled group in its
// help text.

#include <list>
#include <map>
#include <string>
#include <vector>

#include "utils/optparse/option.h"

namespace optparse {

class OptionContainer {
 public:
    explicit OptionContainer(std::string description = "") : m_description(std::move(description)) {}
    OptionContainer(const OptionContainer&) = delete;
    OptionContainer& operator=(const OptionContainer&) = delete;
    virtual ~OptionContainer() = default;

    virtual OptionContainer& description(const std::string& text);
    virtual const std::string& description() const { return m_description; }
    virtual OptionParser& get_parser() = 0;

    /**
     * The container owns the option, which never moves. If a name is already taken, it now refers to the
     * new option.
     */
    Option& add_option(const std::string& name);
    Option& add_option(const std::string& name, const std::string& name2);
    Option& add_option(const std::string& name, const std::string& name2, const std::string& name3);
    Option& add_option(const std::vector<std::string>& names);

    /** The help of all options, in order, except those with SUPPRESS_HELP. */
    std::string format_option_help(unsigned int indent = 2) const;

    const std::list<Option>& options() const { return m_options; }
    const std::map<std::string, Option*>& short_map() const { return m_short_map; }
    const std::map<std::string, Option*>& long_map() const { return m_long_map; }

 protected:
    std::string m_description;
    std::list<Option> m_options;  ///< a list, because the maps point into it
    std::map<std::string, Option*> m_short_map;
    std::map<std::string, Option*> m_long_map;
};

class OptionGroup : public OptionContainer {
 public:
    /** The parser must outlive the group's options. */
    OptionGroup(OptionParser& parser, std::string title, std::string description = "");

    OptionParser& get_parser() override { return m_parser; }
    const std::string& title() const { return m_title; }

 private:
    OptionParser& m_parser;
    std::string m_title;
};

}  // namespace optparse
