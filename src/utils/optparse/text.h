#pragma once
// Text formatting of help and usage.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace optparse {

/** Prefix and suffix that `str_join_trans` puts around each item. */
using str_wrap = std::pair<std::string, std::string>;

/** The items, each wrapped, with `separator` between them. */
template <typename Items>
std::string str_join_trans(const std::string& separator, const Items& items, const str_wrap& wrap) {
    std::string out;
    const char* between = "";
    for (const std::string& item : items) {
        out += between + wrap.first + item + wrap.second;
        between = separator.c_str();
    }
    return out;
}

/** `text` with each `from` replaced; a replacement is not looked at again. */
std::string str_replace(std::string text, const std::string& from, const std::string& to);
std::string to_upper(std::string text);
/** Last component of a path, trailing slashes ignored; "/" for slashes only. */
std::string base_name(const std::string& path);

/** Width of the output in characters: the environment variable COLUMNS, or 160. */
size_t cols();

/**
 * Wraps words at `len` characters and indents by `pre` blanks, the first line only with `indent_first`. The
 * words behind the last separator stay on the line that they begin on. In a running text line breaks are
 * blanks; otherwise they stay.
 */
std::string str_format(std::string text, size_t pre, size_t len, bool running_text = true,
                       bool indent_first = true);

}  // namespace optparse
