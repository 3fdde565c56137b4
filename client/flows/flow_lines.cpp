#include "client/flows/flow_lines.h"

#include <cstdio>

#include "client/text/flow_text.h"
#include "infra/json/corvo_json.h"

namespace brumectl::flows {

namespace {

/** By change_e. */
constexpr struct {
    const char* mark;
    const char* word;
    Terminal::colour_e colour;
} CHANGES[] = {
    {"  ", "stays", Terminal::PLAIN},
    {"+ ", "new", Terminal::GREEN},
    {"- ", "ended", Terminal::DIM},
};

std::string time_of(double now_sec) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", now_sec);
    return text;
}

}  // namespace

FlowLines::FlowLines(const Context& context, bool csv, bool follow)
    : m_out(context.out()),
      m_kind(csv              ? CSV
             : context.json() ? JSON
                              : TEXT),
      m_follow(follow) {}

std::string FlowLines::head() const {
    if (m_kind == JSON) return {};
    const std::string head = m_kind == CSV ? flow_text::csv_head(m_follow ? "at,change," : "", true)
                                           : (m_follow ? CHANGES[STAYS].mark : "") + flow_text::live_head();
    return shown(head.substr(0, head.size() - 1), Terminal::BOLD);
}

std::string FlowLines::body(const Json::Value& flow, double now_sec) const {
    if (m_kind == CSV) return flow_text::csv_row("", flow, true);
    return m_kind == JSON ? corvo::json::write_line(flow) : flow_text::live_row(flow, now_sec);
}

std::string FlowLines::line(const std::string& body, change_e change, double now_sec) const {
    const auto& [mark, word, colour] = CHANGES[change];
    std::string out = body.substr(0, body.size() - 1);
    if (m_kind == TEXT && m_follow) out = mark + out;
    if (m_kind == CSV && m_follow) out = time_of(now_sec) + "," + word + "," + out;
    if (m_kind == JSON && m_follow)
        out = R"({"at":)" + time_of(now_sec) + R"(,"change":")" + word + "\"" + (out == "{}" ? "" : ",") +
              out.substr(1);
    return shown(out, colour);
}

std::string FlowLines::shown(const std::string& line, Terminal::colour_e colour) const {
    if (!m_out.interactive()) return line + "\n";
    const std::string safe = harmless(line);
    if (m_kind != TEXT) return safe + "\n";
    return m_out.paint(colour, clipped(safe, static_cast<size_t>(m_out.width()))) + "\n";
}

}  // namespace brumectl::flows
