#include "utils/optparse/text.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string_view>

namespace optparse {
namespace {

constexpr long DEFAULT_COLS = 160;
constexpr const char* SEPARATORS = " \n\t";

char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace

std::string str_replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t pos = text.find(from); pos != std::string::npos; pos = text.find(from, pos + to.size()))
        text.replace(pos, from.size(), to);
    return text;
}

std::string to_upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), upper);
    return text;
}

std::string base_name(const std::string& path) {
    size_t last = path.find_last_not_of('/');
    if (last == std::string::npos) return path.empty() ? "" : "/";
    size_t slash = path.rfind('/', last);
    size_t first = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(first, last + 1 - first);
}

size_t cols() {
    const char* text = std::getenv("COLUMNS");
    long width = 0;
    if (text) std::istringstream(text) >> width;
    return static_cast<size_t>(width > 0 ? width : DEFAULT_COLS);
}

std::string str_format(std::string text, size_t pre, size_t len, bool running_text, bool indent_first) {
    if (running_text) std::replace(text.begin(), text.end(), '\n', ' ');
    const std::string_view view = text;
    const std::string indent(pre, ' ');

    std::string out;
    auto emit = [&](std::string_view line) {
        if (!out.empty() || indent_first) out += indent;
        out.append(line).append("\n");
    };

    size_t line_start = 0;
    size_t word_start = 0;
    for (size_t sep = view.find_first_of(SEPARATORS); sep != std::string_view::npos;
         sep = view.find_first_of(SEPARATORS, sep + 1)) {
        if (view[sep] == '\n') {
            emit(view.substr(line_start, sep - line_start));
            line_start = sep + 1;
        } else if (sep + pre > line_start + len && word_start > line_start) {
            emit(view.substr(line_start, word_start - 1 - line_start));
            line_start = word_start;
        }
        word_start = sep + 1;
    }
    emit(view.substr(line_start));
    return out;
}

}  // namespace optparse
