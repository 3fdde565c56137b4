#include "client/live/top_view.h"

#include <algorithm>
#include <cstdio>

#include "client/live/notification.h"
#include "client/live/screen.h"
#include "client/text/engine_state.h"
#include "client/text/json_access.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

using Lines = std::vector<std::string>;

constexpr size_t LABEL_END = 13;
/** Where the numbers in a row of traffic end, relative to its name. */
constexpr size_t NUMBER_ENDS[] = {8, 18, 27, 38, 46};
constexpr size_t PERCENT_WIDTH = 6;

std::string format(const char* fmt, double number) {
    char buf[48];
    snprintf(buf, sizeof(buf), fmt, number);
    return buf;
}

/** At most seven columns. */
std::string short_count(uint64_t count) {
    constexpr const char* FORMATS[] = {"%.2f M", "%.2f G", "%.2f T"};
    if (count < 1'000'000) return count_text(count);
    double value = static_cast<double>(count) / 1e6;
    size_t unit = 0;
    for (; value >= 1000 && unit + 1 < std::size(FORMATS); ++unit)
        value /= 1000;
    return format(FORMATS[unit], value);
}

std::string rate_text(const Traffic& row, double rate) {
    if (!row.has_rate) return "-";
    return rate < 100 ? format("%.1f", rate) : short_count(static_cast<uint64_t>(rate));
}

std::string byte_rate_text(const Traffic& row) {
    return row.has_rate ? bytes_text(static_cast<uint64_t>(row.byte_rate)) : "-";
}

/** Engines choose their own words for what isn't fine. */
Terminal::colour_e health_colour(const std::string& health) {
    if (health == "ok") return Terminal::GREEN;
    return health == "bad" ? Terminal::RED : Terminal::YELLOW;
}

Terminal::colour_e load_colour(double share) {
    if (share >= 0.95) return Terminal::RED;
    return share >= 0.8 ? Terminal::YELLOW : Terminal::GREEN;
}

class TopView {
 public:
    TopView(const TopFrame& frame, const Terminal& terminal) : m_frame(frame), m_terminal(terminal) {}

    Lines lines() {
        Lines out{title()};
        if (m_frame.help) {
            const Lines all = help();
            out.insert(out.end(), all.begin(), all.end());
        } else if (m_frame.now != nullptr && m_frame.pane->list != nullptr) {
            const size_t room = m_frame.height > 2 ? m_frame.height - 2 : m_frame.height;
            const Lines list = list_lines(*m_frame.pane, now(), before(), m_terminal, m_frame.width, room);
            out.insert(out.end(), list.begin(), list.end());
        } else if (m_frame.now != nullptr) {
            for (const Lines& part : {engine(), memory(), flows(), collectors()})
                out.insert(out.end(), part.begin(), part.end());
            add_tables(out);
        }
        if (m_frame.height > 0) {
            out.resize(m_frame.height > 1 ? m_frame.height - 1 : 1);
            if (m_frame.height > 1) out.push_back(keys());
        }
        return out;
    }

 private:
    /** A part with its own title; its rows are cut first if there isn't enough room. */
    struct Table {
        std::string head;
        Lines rows;
        std::string note = {};  ///< instead of rows
    };

    ScreenLine line() const { return {m_terminal, m_frame.width}; }
    ScreenLine labelled(const char* label) const {
        ScreenLine out = line();
        out.put(" ").put(label, Terminal::DIM).to(LABEL_END);
        return out;
    }
    const LiveSample& now() const { return *m_frame.now; }
    /** If a daemon doesn't answer, nothing that changes can be shown. */
    bool is_answering() const { return m_frame.trouble.empty(); }
    const LiveSample* before() const { return is_answering() ? m_frame.before : nullptr; }
    std::string cpu_text() const;

    std::string title() const;
    std::string keys() const;
    const char* order_name() const;
    Lines help() const;
    Lines engine() const;
    Lines memory() const;
    Lines flows() const;
    Lines collectors() const;
    Table protocols() const;
    Table interfaces() const;
    Table alerts() const;
    void add_tables(Lines& out) const;
    static void add_table(Lines& out, const Table& table, size_t rows);
    void put_traffic(ScreenLine& out, const Traffic& row) const;
    size_t name_end() const { return m_frame.width >= 100 ? 32 : 16; }
    size_t last_end() const { return name_end() + NUMBER_ENDS[4]; }
    void put_bar(ScreenLine& out, double share, size_t width, Terminal::colour_e colour) const;
    std::string table_head(const char* first, const char* fifth, const char* last) const;

    const TopFrame& m_frame;
    const Terminal& m_terminal;
};

std::string TopView::title() const {
    ScreenLine out = line();
    out.put(" brumecpd", Terminal::BOLD).to(LABEL_END);
    if (!m_frame.trouble.empty()) {
        out.put("● ", Terminal::RED).put("no answer: " + harmless(m_frame.trouble), Terminal::RED);
        return out.text();
    }
    if (m_frame.now == nullptr) return out.put("waiting for the daemon").text();
    const std::string state = string_of(member_of(now().status, "state"));
    out.put("● ", state_colour(state)).put(harmless(state), Terminal::BOLD);
    out.put("   up " + duration_text(count_of(member_of(now().status, "uptime"))));
    out.put("   pid " + std::to_string(count_of(member_of(now().status, "pid"))), Terminal::DIM);
    out.put("   cpu ", Terminal::DIM).put(cpu_text());
    const std::string clock = time_text(corvo::realtime_sec());
    for (const std::string& fitting : {clock, clock.substr(clock.find(' ') + 1)})
        if (out.column() + fitting.size() + 3 < m_frame.width)
            return out.right(fitting, m_frame.width - 1, Terminal::DIM).text();
    return out.text();
}

/** Percentage of one processor since the previous sample. */
std::string TopView::cpu_text() const {
    if (before() == nullptr || !now().machine.cpu_sec || !before()->machine.cpu_sec ||
        !is_comparable(now(), *before()))
        return "-";
    const double taken = *now().machine.cpu_sec - *before()->machine.cpu_sec;
    return percent_text(taken * 1000 / static_cast<double>(now().taken_ms - before()->taken_ms));
}

const char* TopView::order_name() const {
    if (m_frame.pane->list == nullptr) return m_frame.order->name;
    return m_frame.pane->list == &flow_lists::FLOWS ? m_frame.list_order->name : "bytes";
}

std::string TopView::keys() const {
    ScreenLine out = line();
    out.put(" ?", Terminal::BOLD).put(" help   ", Terminal::DIM).put("q", Terminal::BOLD);
    const size_t next = static_cast<size_t>(m_frame.pane - panes().data() + 1) % panes().size();
    out.put(" quit   ", Terminal::DIM).put("tab", Terminal::BOLD);
    out.put(std::string(" ") + panes()[next].name + "   every " + format("%g", m_frame.delay_sec) +
                " s, by " + order_name(),
            Terminal::DIM);
    const std::string address = harmless(m_frame.address);
    if (out.column() + columns(address) + 3 < m_frame.width)
        out.right(address, m_frame.width - 1, Terminal::DIM);
    return out.text();
}

Lines TopView::help() const {
    Lines out{""};
    auto add = [&](const std::string& key, const std::string& meaning) {
        out.push_back(line().put("   ").put(key, Terminal::BOLD).to(LABEL_END).put(meaning).text());
    };
    add("q", "quit");
    add("space", "update now");
    add("+ -", "update less often, more often");
    std::string keys = "tab";
    std::string names = "the next of";
    for (const Pane& pane : panes()) {
        keys += std::string(" ") + pane.key;
        names += std::string(" ") + pane.name;
    }
    add(keys, names);
    for (const TrafficOrder& order : traffic_orders())
        add(std::string(1, order.key), std::string("protocols by ") + order.name);
    for (const ListOrder& order : list_orders())
        add(std::string(1, order.key), std::string("flows by ") + order.name);
    add("Ctrl-Z", "suspend; `fg` resumes");
    add("? h", "this help; any key closes it");
    return out;
}

Lines TopView::engine() const {
    const Json::Value& version = member_of(now().status, "version");
    ScreenLine out = labelled("engine");
    std::string name = string_of(member_of(version, "name")) + " " + string_of(member_of(version, "version"));
    out.put(name == " " ? "-" : harmless(name));
    if (std::string ndpi = string_of(member_of(version, "ndpi")); !ndpi.empty())
        out.put(", nDPI " + harmless(ndpi));
    out.put("   " + harmless(string_of(member_of(now().status, "mode"))) + "   ", Terminal::DIM);
    out.put("health ", Terminal::DIM);
    if (!is_answering()) return {out.put("unknown", Terminal::YELLOW).text()};
    if (!now().health.error.empty()) return {out.put(harmless(now().health.error)).text()};
    const std::string state = string_of(member_of(now().health.value, "state"));
    out.put(state.empty() ? "-" : harmless(state), health_colour(state));
    const Json::Value& items = member_of(now().health.value, "items");
    if (!items.isObject()) return {out.text()};
    for (auto item = items.begin(); item != items.end(); ++item) {
        const std::string worse = string_of(member_of(*item, "state"));
        if (worse != "ok") out.put("  " + harmless(item.name()), health_colour(worse));
    }
    return {out.text()};
}

void TopView::put_bar(ScreenLine& out, double share, size_t width, Terminal::colour_e colour) const {
    size_t end = out.column() + width;
    out.put(bar(share, static_cast<int>(width)), colour).to(end);
    out.right(percent_text(share, 0), end + PERCENT_WIDTH);
}

Lines TopView::memory() const {
    const Json::Value& memory = member_of(now().status, "mem");
    const Json::Value& own = member_of(memory, {"process", "phy_mem"});
    uint64_t total = count_of(member_of(memory, "total_mem"));
    ScreenLine out = labelled("memory");
    out.put(bytes_text(count_of(member_of(own, "current")) * MIB));
    out.put(" (most " + bytes_text(count_of(member_of(own, "max")) * MIB) + ")", Terminal::DIM);
    out.to(40).put("machine ", Terminal::DIM);
    if (!now().machine.used_memory) {  // memory that isn't free may be caches
        out.put(bytes_text(count_of(member_of(memory, "free_mem")) * MIB));
        return {out.put(" free of " + bytes_text(total * MIB), Terminal::DIM).text()};
    }
    const uint64_t used = *now().machine.used_memory;
    out.put(bytes_text(used)).put(" of " + bytes_text(total * MIB) + " used ", Terminal::DIM);
    double share = total == 0 ? 0 : static_cast<double>(used) / static_cast<double>(total * MIB);
    if (m_frame.width >= 100)
        put_bar(out.to(80), share, m_frame.width - 81 - PERCENT_WIDTH, load_colour(share));
    else
        out.right(percent_text(share, 0), m_frame.width - 1);
    return {out.text()};
}

Lines TopView::flows() const {
    ScreenLine out = labelled("flows");
    if (!now().flows.error.empty()) return {out.put(harmless(now().flows.error)).text()};
    const Json::Value& flows = now().flows.value;
    uint64_t active = count_of(member_of(flows, "active"));
    uint64_t max = count_of(member_of(flows, "max"));
    double share = max == 0 ? 0 : static_cast<double>(active) / static_cast<double>(max);
    out.put(short_count(active)).put(" of " + short_count(max) + " ", Terminal::DIM).to(32);
    put_bar(out, share, m_frame.width >= 100 ? 24 : 8, load_colour(share));
    out.put("   created ", Terminal::DIM).put(short_count(count_of(member_of(flows, "created"))));
    out.put("  unclassified ", Terminal::DIM).put(short_count(count_of(member_of(flows, "unclassified"))));
    uint64_t errors = 0;
    const Json::Value& causes = member_of(flows, "errors");
    if (causes.isObject())
        for (const Json::Value& cause : causes)
            errors += count_of(cause);
    if (errors > 0) out.put("  errors " + short_count(errors), Terminal::YELLOW);
    return {out.text()};
}

Lines TopView::collectors() const {
    ScreenLine out = labelled("collectors");
    if (!now().collectors.error.empty()) return {out.put(harmless(now().collectors.error)).text()};
    const Json::Value& collectables = member_of(now().collectors.value, "collectables");
    if (collectables.isArray())
        for (const Json::Value& row : collectables) {
            bool on = member_of(row, "enabled") == true;
            out.put(harmless(string_of(member_of(row, "name"))) + " ");
            out.put(on ? "on" : "off", on ? Terminal::GREEN : Terminal::DIM).put("  ");
        }
    const Json::Value& exporter = member_of(now().collectors.value, "exporter");
    out.put(" exporter ", Terminal::DIM).put(harmless(string_of(member_of(exporter, "type"))));
    if (uint64_t failed = count_of(member_of(exporter, "failed")); failed > 0)
        out.put("  failed " + short_count(failed), Terminal::YELLOW);
    return {out.text()};
}

std::string TopView::table_head(const char* first, const char* fifth, const char* last) const {
    ScreenLine out = line();
    out.put(" ").put(first, Terminal::BOLD);
    const char* const titles[] = {"PKT/S", "BYTE/S", "PACKETS", "BYTES", fifth};
    for (size_t i = 0; i < std::size(titles); ++i)
        out.right(titles[i], name_end() + NUMBER_ENDS[i], Terminal::BOLD);
    return out.put("  ").put(last, Terminal::BOLD).text();
}

/** All numbers but the last, which ends at `last_end`. */
void TopView::put_traffic(ScreenLine& out, const Traffic& row) const {
    bool busy = row.packet_rate > 0;
    ScreenLine name{m_terminal, name_end()};
    out.put(name.put(" " + harmless(row.name)).text(), busy ? Terminal::CYAN : Terminal::PLAIN);
    const std::string numbers[] = {rate_text(row, row.packet_rate), byte_rate_text(row),
                                   short_count(row.packets), bytes_text(row.bytes)};
    for (size_t i = 0; i < std::size(numbers); ++i)
        out.right(numbers[i], name_end() + NUMBER_ENDS[i], busy || i > 1 ? Terminal::PLAIN : Terminal::DIM);
}

TopView::Table TopView::protocols() const {
    const std::vector<Traffic> rows = protocol_traffic(now(), before(), *m_frame.order);
    double rates = 0;
    double bytes = 0;
    for (const Traffic& row : rows) {
        rates += row.byte_rate;
        bytes += static_cast<double>(row.bytes);
    }
    Table table{table_head("PROTOCOL", "FLOWS", rates > 0 ? "SHARE NOW" : "SHARE"), {}};
    table.note = now().protocols.error.empty() ? "no packets so far" : harmless(now().protocols.error);
    for (const Traffic& row : rows) {
        ScreenLine out = line();
        put_traffic(out, row);
        out.right(short_count(row.flows), last_end()).put("  ");
        double share = rates > 0   ? row.byte_rate / rates
                       : bytes > 0 ? static_cast<double>(row.bytes) / bytes
                                   : 0;
        size_t room = m_frame.width - std::min(m_frame.width, out.column() + 1);
        if (room >= PERCENT_WIDTH + 4)
            put_bar(out, share, room - PERCENT_WIDTH, Terminal::BLUE);
        else
            out.put(percent_text(share, 0));
        table.rows.push_back(out.text());
    }
    return table;
}

TopView::Table TopView::interfaces() const {
    Table table{table_head("INTERFACE", "DROPS", "LINK"), {}};
    table.note = now().interfaces.error.empty() ? "none attached" : harmless(now().interfaces.error);
    for (const Traffic& row : interface_traffic(now(), before())) {
        ScreenLine out = line();
        put_traffic(out, row);
        if (row.name == "pushed") {
            table.rows.push_back(out.right("-", last_end(), Terminal::DIM).text());
            continue;
        }
        out.right(short_count(row.drops), last_end(), row.drops > 0 ? Terminal::YELLOW : Terminal::PLAIN);
        out.put("  ").put(row.up ? "up" : "down", row.up ? Terminal::GREEN : Terminal::RED);
        if (row.downs > 0) out.put(" (" + short_count(row.downs) + " times down)", Terminal::DIM);
        table.rows.push_back(out.text());
    }
    return table;
}

TopView::Table TopView::alerts() const {
    Table table{line().put(" ").put("ALERTS", Terminal::BOLD).text(), {}};
    table.note = now().alerts.error.empty() ? "none" : harmless(now().alerts.error);
    std::vector<const Json::Value*> sorted;
    if (now().alerts.value.isArray())
        for (const Json::Value& alert : now().alerts.value)
            sorted.push_back(&alert);
    std::sort(sorted.begin(), sorted.end(), [](const Json::Value* a, const Json::Value* b) {
        return count_of(member_of(*a, "last_ts")) > count_of(member_of(*b, "last_ts"));
    });
    for (const Json::Value* alert : sorted) {
        const std::string severity = string_of(member_of(*alert, "sev"));
        ScreenLine out = line();
        out.put(" " + time_text(static_cast<int64_t>(count_of(member_of(*alert, "last_ts")))), Terminal::DIM);
        out.put("  ").put(harmless(severity), severity_colour(severity)).to(30);
        out.put(harmless(string_of(member_of(*alert, "feature"))) + "  ");
        out.put(harmless(string_of(member_of(*alert, "name"))));
        out.put("  × " + short_count(count_of(member_of(*alert, "count"))), Terminal::DIM);
        table.rows.push_back(out.text());
    }
    return table;
}

void TopView::add_table(Lines& out, const Table& table, size_t rows) {
    out.emplace_back();
    out.push_back(table.head);
    if (table.rows.empty()) out.push_back(" " + table.note);
    size_t shown = table.rows.size() <= rows ? table.rows.size() : rows - 1;
    out.insert(out.end(), table.rows.begin(), table.rows.begin() + static_cast<std::ptrdiff_t>(shown));
    if (shown < table.rows.size())
        out.push_back(drawn(" … ") + std::to_string(table.rows.size() - shown) + " more");
}

/** Protocols get what the other two leave. Those take at most a quarter each, but at least one row. */
void TopView::add_tables(Lines& out) const {
    const Table tables[] = {protocols(), interfaces(), alerts()};
    constexpr size_t FRAME = 2;  // a blank line and the head
    size_t room = SIZE_MAX / 2;
    size_t small = room;
    if (m_frame.height > 0) {
        size_t taken = out.size() + 1 + 3 * FRAME;
        room = m_frame.height > taken ? m_frame.height - taken : 0;
        small = std::max<size_t>(1, room / 4);
    }
    size_t sizes[3] = {};
    for (size_t i = 1; i < 3; ++i) {
        sizes[i] = std::clamp<size_t>(tables[i].rows.size(), 1, small);
        room -= std::min(room, sizes[i]);
    }
    sizes[0] = std::max<size_t>(1, room);
    for (size_t i = 0; i < 3; ++i)
        add_table(out, tables[i], sizes[i]);
}

}  // namespace

std::vector<std::string> top_lines(const TopFrame& frame, const Terminal& terminal) {
    return TopView(frame, terminal).lines();
}

}  // namespace brumectl
