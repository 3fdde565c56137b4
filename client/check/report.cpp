#include "client/check/report.h"

#include <algorithm>

#include "client/text/terminal.h"

namespace brumectl::check {

const char* severity_word(severity_e severity) {
    return severity == ERROR ? "error" : "warning";
}

Report::Report(const std::string& text) : m_text(text), m_lines{0} {
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1))
        m_lines.push_back(at + 1);
}

void Report::add(severity_e severity, size_t offset, std::string text) {
    ++m_counts[severity];
    if (m_findings.size() < MAX_KEPT)
        m_findings.push_back({std::min(offset, m_text.size()), severity, std::move(text)});
}

void Report::warning_at_name(const Json::Value& value, std::string text) {
    add(WARNING, name_before(offset_of(value)), std::move(text));
}

size_t Report::name_before(size_t offset) const {
    size_t at = std::min(offset, m_text.size());
    auto skip_blanks = [&] {
        while (at > 0 && isspace(static_cast<unsigned char>(m_text[at - 1])) != 0)
            --at;
    };
    auto step_over = [&](char c) { return at > 0 && m_text[at - 1] == c && at-- > 0; };
    skip_blanks();
    if (!step_over(':')) return offset;  // a comment is in between
    skip_blanks();
    if (!step_over('"')) return offset;
    while (at-- > 0) {
        if (m_text[at] != '"') continue;
        size_t slashes = 0;
        while (slashes < at && m_text[at - 1 - slashes] == '\\')
            ++slashes;
        if (slashes % 2 == 0) return at;
    }
    return offset;
}

std::vector<Finding> Report::findings() const {
    std::vector<Finding> sorted = m_findings;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
    return sorted;
}

Place Report::place(size_t offset) const {
    auto behind = std::upper_bound(m_lines.begin(), m_lines.end(), offset);
    size_t begin = *(behind - 1);
    return {static_cast<size_t>(behind - m_lines.begin()), columns(m_text.substr(begin, offset - begin)) + 1};
}

}  // namespace brumectl::check
