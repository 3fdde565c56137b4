#pragma once
// The problems found in a text, each with its place. They are returned in the order of their lines, whatever
// the order of the checks.

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace brumectl::check {

enum severity_e { WARNING, ERROR };

const char* severity_word(severity_e severity);

struct Finding {
    size_t offset = 0;  ///< in the text, bytes
    severity_e severity = ERROR;
    std::string text = {};  ///< may quote the file, so isn't yet safe for a terminal
};

/** Counted from 1, as editors do; columns are characters, not bytes. */
struct Place {
    size_t line = 1;
    size_t column = 1;
};

class Report {
 public:
    /**
     * Findings beyond this number are counted but not kept: a file of another kind has one at every value.
     */
    static constexpr size_t MAX_KEPT = 1000;

    /** `text` must outlive the report. */
    explicit Report(const std::string& text);

    void add(severity_e severity, size_t offset, std::string text);
    /** At a value that was parsed from the text. */
    void error(const Json::Value& at, std::string text) { add(ERROR, offset_of(at), std::move(text)); }
    void warning(const Json::Value& at, std::string text) { add(WARNING, offset_of(at), std::move(text)); }
    /** At the name of the member with this value, if the name comes right before it. */
    void warning_at_name(const Json::Value& value, std::string text);

    /** Sorted by place. */
    std::vector<Finding> findings() const;
    size_t count(severity_e severity) const { return m_counts[severity]; }
    Place place(size_t offset) const;

 private:
    static size_t offset_of(const Json::Value& value) { return static_cast<size_t>(value.getOffsetStart()); }
    size_t name_before(size_t offset) const;

    const std::string& m_text;
    std::vector<size_t> m_lines;  ///< where each line begins
    std::vector<Finding> m_findings;
    size_t m_counts[2] = {};
};

}  // namespace brumectl::check
