#include "engines/engine_script.h"

#include <fstream>
#include <sstream>

namespace test {

EngineScript EngineScript::read(const char* path) {
    if (!path) return EngineScript("");
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return EngineScript(text.str());
}

EngineScript::EngineScript(const std::string& text) : m_text(text) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        Line parsed;
        words >> parsed.verb >> parsed.subject >> std::ws;
        std::getline(words, parsed.rest);
        if (!parsed.verb.empty()) m_lines.push_back(parsed);
    }
}

const std::string* EngineScript::find(const std::string& verb, const std::string* subject) const {
    for (auto it = m_lines.rbegin(); it != m_lines.rend(); ++it) {
        if (it->verb != verb) continue;
        if (subject ? it->subject == *subject : it->subject.empty()) return &it->rest;
    }
    return nullptr;
}

std::vector<std::string> split_words(const std::string& text) {
    std::istringstream words(text);
    std::vector<std::string> out;
    for (std::string word; words >> word;)
        out.push_back(word);
    return out;
}

}  // namespace test
