#pragma once
// What is found wrong in a text, each with its place. Findings keep the text's order of lines when they are
// asked for, whatever the order in which the checks ran.

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace brumectl::check {

enum severity_e { WARNING, ERROR };

const char* severity_word(severity_e severity);

struct Finding {
    size_t offset = 0;  ///< of the text, bytes
    severity_e severity = ERROR;
    std::string text = {};  ///< may quote the file: not yet fit for a terminal
};

/** From 1 on, as editors count: columns are characters, not bytes. */
struct Place {
    size_t line = 1;
    size_t column = 1;
};

class Report {
 public:
    /** More than these are counted but not kept: a file of another kind has one at every value. */
    static constexpr size_t MAX_KEPT = 1000;

    /** `text` must outlive the report. */
    explicit Report(const std::string& text);

    void add(severity_e severity, size_t offset, std::string text);
    /** At a value that was parsed from the text. */
    void error(const Json::Value& at, std::string text) { add(ERROR, offset_of(at), std::move(text)); }
    void warning(const Json::Value& at, std::string text) { add(WARNING, offset_of(at), std::move(text)); }
    /** At the name of a member with this value, where the name stands right before it. */
    void warning_at_name(const Json::Value& value, std::string text);

    /** By their place. */
    std::vector<Finding> findings() const;
    size_t count(severity_e severity) const { return m_counts[severity]; }
    Place place(size_t offset) const;

 private:
    static size_t offset_of(const Json::Value& value) { return static_cast<size_t>(value.getOffsetStart()); }
    size_t name_before(size_t offset) const;

    const std::string& m_text;
    std::vector<size_t> m_lines;  ///< where each begins
    std::vector<Finding> m_findings;
    size_t m_counts[2] = {};
};

}  // namespace brumectl::check
