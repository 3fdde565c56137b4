#include "record_text.h"

#include <charconv>

#include "flow_rows.h"
#include "spool.h"

namespace corvo::engine {
namespace {

constexpr const char* REASONS[] = {"ended", "idle", "evicted", "active", "stopped"};

template <typename Number>
void append_number(Number value, std::string& out) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

class TextRow : public RowMembers {
 public:
    explicit TextRow(std::string& out) : m_out(out) {}

    void text(const char* name, std::string_view value) override {
        begin(name);
        append_quoted(value, m_out);
    }
    void number(const char* name, uint64_t value) override {
        begin(name);
        append_number(value, m_out);
    }
    void time(const char* name, int64_t value) {
        begin(name);
        append_number(value, m_out);
    }
    void flag(const char* name, bool value) override {
        begin(name);
        m_out += value ? "true" : "false";
    }
    void texts(const char* name, const std::vector<std::string_view>& values) override {
        begin(name);
        char before = '[';
        for (const std::string_view value : values) {
            m_out += before;
            append_quoted(value, m_out);
            before = ',';
        }
        m_out += ']';
    }

 private:
    void begin(std::string_view name) {
        m_out += ",\"";
        m_out += name;
        m_out += "\":";
    }

    std::string& m_out;
};

}  // namespace

void append_quoted(std::string_view text, std::string& out) {
    out += '"';
    for (size_t end; (end = text.find_first_of("\"\\")) != std::string_view::npos;
         text.remove_prefix(end + 1)) {
        out += text.substr(0, end);
        out += '\\';
        out += text[end];
    }
    out += text;
    out += '"';
}

void append_record(const RecordFrame& frame, const Flow& flow, const FlowTraffic& traffic,
                   const Classifier& classifier, std::string& out) {
    out += RECORD_START;
    append_number(frame.number, out);
    out += frame.origin;
    TextRow row(out);
    row.text("why", REASONS[frame.why]);
    row.time("start", frame.start_us);
    row.time("end", frame.end_us);
    row.number("flow", frame.first_number);
    if (frame.number != frame.first_number) row.time("since", frame.since_us);
    tell_flow(flow, traffic, classifier, true, row);
    out += "}\n";
}

}  // namespace corvo::engine
