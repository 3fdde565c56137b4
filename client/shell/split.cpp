#include "client/shell/split.h"

#include "client/failure.h"

namespace brumectl {

namespace {

class Splitter {
 public:
    explicit Splitter(const std::string& line) {
        for (size_t at = 0; at < line.size() && !m_comment; ++at)
            take(line[at]);
    }

    std::vector<std::string> words;
    std::string word;
    bool in_word = false;
    bool open() const { return m_quote != 0 || m_escaped; }

 private:
    void take(char c) {
        if (m_escaped) {
            // Within double quotes, a backslash is literal except before a quote or another backslash.
            if (m_quote == '"' && c != '"' && c != '\\') word += '\\';
            word += c;
            m_escaped = false;
        } else if (c == '\\' && m_quote != '\'') {
            m_escaped = in_word = true;
        } else if (m_quote != 0) {
            if (c == m_quote)
                m_quote = 0;
            else
                word += c;
        } else if (c == '\'' || c == '"') {
            m_quote = c;
            in_word = true;
        } else if (c == ' ' || c == '\t' || c == '\r') {
            if (in_word) words.push_back(std::move(word));
            word.clear();
            in_word = false;
        } else if (c == '#' && !in_word) {
            m_comment = true;
        } else {
            word += c;
            in_word = true;
        }
    }

    char m_quote = 0;
    bool m_escaped = false;
    bool m_comment = false;
};

}  // namespace

std::vector<std::string> split_words(const std::string& line) {
    Splitter splitter(line);
    if (splitter.open()) throw Usage("a quote or a backslash at the line's end is left open");
    if (splitter.in_word) splitter.words.push_back(splitter.word);
    return splitter.words;
}

std::vector<std::string> split_unfinished(const std::string& line) {
    Splitter splitter(line);
    splitter.words.push_back(splitter.word);
    return splitter.words;
}

}  // namespace brumectl
