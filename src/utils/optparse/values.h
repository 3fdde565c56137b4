#pragma once
// The result of parsing a command line: texts by key. A text is converted to a number only when read.

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace optparse {

class Value {
 public:
    Value() = default;
    explicit Value(std::string text) : m_text(std::move(text)), m_valid(true) {}

    /** False if neither an option nor a default set this value. */
    bool valid() const { return m_valid; }
    const std::string& text() const { return m_text; }

    /** Converts to any arithmetic type, so that it can be assigned to one; 0 if the text doesn't parse. */
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
    operator T() const {  // NOLINT: implicit by design
        std::istringstream in(m_text);
        T number{};
        return m_valid && in >> number ? number : T{};
    }

 private:
    std::string m_text;
    bool m_valid = false;
};

class Values {
 public:
    /** Empty for an unknown key. */
    const std::string& operator[](const std::string& key) const;
    /** Valid only for a known key. */
    Value get(const std::string& key) const;
    bool is_set(const std::string& key) const { return m_texts.count(key) != 0; }
    /** All values of a repeatable option, in order, without its default. */
    const std::vector<std::string>& all(const std::string& key) const;

    bool is_set_by_user(const std::string& key) const { return m_by_user.count(key) != 0; }
    void is_set_by_user(const std::string& key, bool yes);

    void set(const std::string& key, const std::string& text) { m_texts[key] = text; }
    void append(const std::string& key, const std::string& text) { m_lists[key].push_back(text); }

 private:
    std::map<std::string, std::string> m_texts;
    std::map<std::string, std::vector<std::string>> m_lists;
    std::set<std::string> m_by_user;
};

}  // namespace optparse
