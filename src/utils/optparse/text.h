#pragma once
// Text formatting for help and usage.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace optparse {

/** Prefix and suffix that `str_join_trans` puts around each item. */
using str_wrap = std::pair<std::string, std::string>;

/** Joins the items, each wrapped, with `separator` between them. */
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

/** Replaces each `from` in `text`; replacements aren't scanned again. */
std::string str_replace(std::string text, const std::string& from, const std::string& to);
std::string to_upper(std::string text);
/** Last component of a path, ignoring trailing slashes; "/" if there are only slashes. */
std::string base_name(const std::string& path);

/** Output width in characters: the environment variable COLUMNS, or 160. */
size_t cols();

/**
 * Wraps words at `len` characters and indents by `pre` blanks, the first line only with `indent_first`. Words
 * after the last separator stay on the line where they start. In running text, line breaks count as blanks;
 * otherwise they are kept.
 */
std::string str_format(std::string text, size_t pre, size_t len, bool running_text = true,
                       bool indent_first = true);

}  // namespace optparse
