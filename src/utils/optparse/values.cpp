#include "utils/optparse/values.h"

namespace optparse {
namespace {

template <typename T>
const T& find_or_empty(const std::map<std::string, T>& map, const std::string& key) {
    static const T empty;
    auto found = map.find(key);
    return found == map.end() ? empty : found->second;
}

}  // namespace

const std::string& Values::operator[](const std::string& key) const {
    return find_or_empty(m_texts, key);
}

Value Values::get(const std::string& key) const {
    auto found = m_texts.find(key);
    return found == m_texts.end() ? Value() : Value(found->second);
}

const std::vector<std::string>& Values::all(const std::string& key) const {
    return find_or_empty(m_lists, key);
}

void Values::is_set_by_user(const std::string& key, bool yes) {
    if (yes)
        m_by_user.insert(key);
    else
        m_by_user.erase(key);
}

}  // namespace optparse
