#pragma once
// What a test tells the scripted engine to do: lines in a file that the engine reads afresh at each call. The
// language is described in README.md.

#include <string>
#include <vector>

namespace test {

class EngineScript {
 public:
    /** An unreadable or absent file is an empty script. */
    static EngineScript read(const char* path);
    explicit EngineScript(const std::string& text);

    const std::string& text() const { return m_text; }
    /** A line that is this word alone. */
    bool has(const std::string& verb) const { return find(verb, nullptr) != nullptr; }
    bool has(const std::string& verb, const std::string& function) const {
        return find(verb, &function) != nullptr;
    }
    /** The rest of the line "verb function ...", null if there is none; the last such line counts. */
    const std::string* rest(const std::string& verb, const std::string& function) const {
        return find(verb, &function);
    }

 private:
    struct Line {
        std::string verb;
        std::string subject;
        std::string rest;
    };
    const std::string* find(const std::string& verb, const std::string* subject) const;

    std::string m_text;
    std::vector<Line> m_lines;
};

/** Cuts at blanks. */
std::vector<std::string> split_words(const std::string& text);

}  // namespace test
