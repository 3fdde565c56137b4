#include "client/live/list_pane.h"

#include <algorithm>
#include <unordered_map>

#include "client/live/screen.h"
#include "client/live/traffic.h"
#include "client/text/flow_text.h"
#include "client/text/json_access.h"

namespace brumectl {

namespace {

constexpr Pane PANES[] = {
    {'1', "overview", nullptr}, {'2', "flows", &flow_lists::FLOWS}, {'3', "hosts", &flow_lists::HOSTS}};
constexpr ListOrder ORDERS[] = {{'b', "bytes", "bytes"}, {'p', "packets", "packets"}, {'a', "age", "first"}};

/** A text column that ends where the next begins, or a number that ends there. */
struct Column {
    const char* title;
    size_t width;
    bool right;
};

constexpr Column FLOW_COLUMNS[] = {{"CLIENT", 22, false}, {"SERVER", 22, false}, {"PROTOCOL", 14, false},
                                   {"BYTE/S", 10, true},  {"BYTES", 11, true},   {"PACKETS", 11, true},
                                   {"NAME", 0, false}};
constexpr Column HOST_COLUMNS[] = {{"HOST", 40, false},
                                   {"BYTE/S", 10, true},
                                   {"BYTES", 11, true},
                                   {"PACKETS", 11, true},
                                   {"FLOWS", 7, true}};

class ListPane {
 public:
    ListPane(const Pane& pane, const LiveSample& now, const LiveSample* before, const Terminal& terminal,
             size_t width)
        : m_is_flows(pane.list == &flow_lists::FLOWS), m_now(now), m_terminal(terminal), m_width(width) {
        if (before == nullptr || before->listed.list != pane.list || !is_comparable(now, *before)) return;
        m_seconds = static_cast<double>(now.taken_ms - before->taken_ms) / 1000;
        for (const Json::Value& row : before->listed.rows)
            m_before[id_of(row)] = count_of(member_of(row, "bytes"));
    }

    std::string head() const {
        ScreenLine out = line();
        std::vector<std::string> titles;
        for (const Column& column : columns_of())
            titles.emplace_back(column.title);
        put(out, titles, Terminal::BOLD);
        return out.text();
    }

    std::string row(const Json::Value& row) const {
        ScreenLine out = line();
        const std::string rate = rate_text(row);
        const std::string bytes = bytes_text(count_of(member_of(row, "bytes")));
        const std::string packets = count_text(count_of(member_of(row, "packets")));
        const bool is_busy = rate != "-" && rate != "0 B";
        const auto colour = is_busy ? Terminal::CYAN : Terminal::PLAIN;
        if (m_is_flows)
            put(out,
                {flow_text::endpoint(row, "client"), flow_text::endpoint(row, "server"),
                 flow_text::protocol(row), rate, bytes, packets, flow_text::server_name(row)},
                colour);
        else
            put(out,
                {harmless(string_of(member_of(row, "address"))), rate, bytes, packets,
                 count_text(count_of(member_of(row, "flows")))},
                colour);
        return out.text();
    }

 private:
    ScreenLine line() const { return {m_terminal, m_width}; }
    std::span<const Column> columns_of() const {
        return m_is_flows ? std::span<const Column>(FLOW_COLUMNS) : std::span<const Column>(HOST_COLUMNS);
    }
    std::string id_of(const Json::Value& row) const {
        return m_is_flows ? flow_text::id(row) : string_of(member_of(row, "address"));
    }

    std::string rate_text(const Json::Value& row) const {
        const auto found = m_before.find(id_of(row));
        const uint64_t bytes = count_of(member_of(row, "bytes"));
        // What has shrunk is another flow with the same ends.
        if (found == m_before.end() || bytes < found->second) return "-";
        return bytes_text(static_cast<uint64_t>(static_cast<double>(bytes - found->second) / m_seconds));
    }

    /** On a wide screen, the ends of IPv6 flows have room. */
    size_t width_of(const Column& column) const {
        return column.width == 22 && m_width >= 140 ? 47 : column.width;
    }

    void put(ScreenLine& out, const std::vector<std::string>& cells, Terminal::colour_e colour) const {
        size_t end = 1;
        for (size_t i = 0; i < cells.size(); ++i) {
            const Column& column = columns_of()[i];
            end += width_of(column);
            if (column.right)
                out.right(cells[i], end, colour == Terminal::BOLD ? colour : Terminal::PLAIN);
            else if (column.width == 0)
                out.put("  " + cells[i], colour);
            else
                out.to(end - width_of(column)).put(clipped(cells[i], width_of(column) - 1), colour);
        }
    }

    const bool m_is_flows;
    const LiveSample& m_now;
    const Terminal& m_terminal;
    const size_t m_width;
    double m_seconds = 1;
    std::unordered_map<std::string, uint64_t> m_before;  ///< bytes by id
};

}  // namespace

std::span<const Pane> panes() {
    return PANES;
}

std::span<const ListOrder> list_orders() {
    return ORDERS;
}

std::vector<std::string> list_lines(const Pane& pane, const LiveSample& now, const LiveSample* before,
                                    const Terminal& terminal, size_t width, size_t height) {
    const ListPane view(pane, now, before, terminal, width);
    const std::vector<Json::Value>& rows = now.listed.rows;
    const auto line = [&](const std::string& text) { return ScreenLine(terminal, width).put(text).text(); };
    std::vector<std::string> out = {"", view.head()};
    if (now.listed.list != pane.list) return out;  // not asked for yet
    if (!now.listed.error.empty()) return {"", line(" " + harmless(now.listed.error))};
    if (rows.empty()) out.push_back(line(std::string(" no ") + pane.name));
    const uint64_t total = std::max<uint64_t>(now.listed.total, rows.size());
    const bool has_room = height == 0 || rows.size() + 2 <= height;
    const size_t shown = has_room ? rows.size() : std::min(rows.size(), height - std::min<size_t>(height, 3));
    for (size_t i = 0; i < shown; ++i)
        out.push_back(view.row(rows[i]));
    if (total > shown) out.push_back(line(drawn(" … ") + count_text(total - shown) + " more"));
    return out;
}

}  // namespace brumectl
