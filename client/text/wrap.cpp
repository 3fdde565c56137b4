#include "client/text/wrap.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "client/text/terminal.h"

namespace brumectl {

namespace {

struct Paragraph {
    std::string begin = {};  ///< blanks and the term of an entry
    size_t hang = 0;         ///< column where its text starts
    std::string text = {};
};

Paragraph entry_of(const std::string& line, size_t indent) {
    const size_t term_end = line.find("  ", indent);
    const size_t hang = term_end == std::string::npos ? indent : line.find_first_not_of(' ', term_end);
    return {line.substr(0, hang), hang, line.substr(hang)};
}

}  // namespace

std::string wrapped(const std::string& text, size_t indent, size_t width) {
    std::istringstream words(drawn(text));
    std::string out;
    size_t column = indent;
    for (std::string word; words >> word;) {
        const size_t taken = columns(word);
        if (column > indent && column + 1 + taken > width) {
            out += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out += word;
        column += taken;
    }
    return out;
}

std::string reflowed(const std::string& text, size_t width) {
    std::string out;
    Paragraph paragraph;
    const auto end_paragraph = [&] {
        if (!paragraph.text.empty())
            out += paragraph.begin + wrapped(paragraph.text, paragraph.hang, width) + "\n";
        paragraph = {};
    };
    std::istringstream lines(drawn(text));
    for (std::string line; std::getline(lines, line);) {
        const size_t indent = std::min(line.find_first_not_of(' '), line.size());
        const bool goes_on = !paragraph.text.empty() && indent == paragraph.hang;
        if (line.empty()) {
            end_paragraph();
            out += "\n";
        } else if (goes_on) {
            paragraph.text += " " + line;
        } else {
            end_paragraph();
            paragraph = indent == 0 ? Paragraph{"", 0, line} : entry_of(line, indent);
        }
    }
    end_paragraph();
    return out;
}

}  // namespace brumectl
