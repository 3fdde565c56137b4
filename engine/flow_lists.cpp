#include "flow_lists.h"

#include <algorithm>
#include <charconv>

#include "engine_error.h"
#include "flow_list.h"

namespace corvo::engine {
namespace {

/** Text around the rows of a page. */
constexpr size_t FRAME_BYTES = 200;

/** Returns the list's number and the position in it; {0, 0} if the text isn't a cursor. */
std::pair<uint64_t, size_t> parse_cursor(const std::string& text) {
    std::pair<uint64_t, size_t> out;
    const char* end = text.data() + text.size();
    const auto [dot, id_error] = std::from_chars(text.data(), end, out.first);
    if (id_error != std::errc() || dot == end || *dot != '.') return {};
    const auto [rest, position_error] = std::from_chars(dot + 1, end, out.second);
    if (position_error != std::errc() || rest != end) return {};
    return out;
}

}  // namespace

FlowLists::FlowLists(const Shards& path, uint64_t first_id, ClockFn clock)
    : m_path(path), m_clock(clock), m_next_id(first_id) {}
FlowLists::~FlowLists() = default;

Json::Value FlowLists::flows(const FlowQuery& query, uint32_t limit) {
    return begin(make_flow_list(m_path, query, m_clock), limit);
}

Json::Value FlowLists::hosts(uint32_t limit) {
    return begin(make_host_list(m_path), limit);
}

Json::Value FlowLists::begin(std::unique_ptr<FlowList> list, uint32_t limit) {
    if (m_lists.size() == MAX_LISTS) m_lists.pop_front();
    m_lists.push_back({m_next_id++, 0, std::move(list)});
    return page(std::prev(m_lists.end()), 0, limit);
}

Json::Value FlowLists::next(const char* member, const std::string& cursor, uint32_t limit) {
    const auto [id, position] = parse_cursor(cursor);
    const auto entry =
        std::find_if(m_lists.begin(), m_lists.end(), [id = id](const Entry& one) { return one.id == id; });
    if (entry == m_lists.end() || std::string(entry->list->member()) != member)
        throw Error("the list of cursor " + quoted(cursor) + " has ended, begin without a cursor");
    m_lists.splice(m_lists.end(), m_lists, entry);
    return page(entry, position, limit);
}

Json::Value FlowLists::page(std::list<Entry>::iterator entry, size_t position, uint32_t limit) {
    const Budget budget(m_clock, PAGE_MS);
    FlowList& list = *entry->list;
    Json::Value out(Json::objectValue);
    Json::Value& rows = out[list.member()] = Json::arrayValue;
    const bool collected = list.collected(budget);
    const size_t total = list.ranking().size();
    size_t bytes = FRAME_BYTES;
    while (collected && position < total && rows.size() < limit && !budget.spent()) {
        const Ranked* item = list.ranking().at(position, budget);
        if (!item) break;
        std::optional<Row> row = list.row(*item);
        if (row && bytes + row->bytes > PAGE_BYTES) break;
        if (row) {
            bytes += row->bytes;
            rows.append(std::move(row->json));
        }
        position++;
    }
    if (collected) out["total"] = Json::UInt64{total};
    if (!collected || position < total)
        out["cursor"] = std::to_string(entry->id) + "." + std::to_string(position);
    entry->used_ms = m_clock();  // the last page may be requested again if the reply got lost
    return out;
}

void FlowLists::tick(uint64_t now_ms) {
    std::erase_if(m_lists, [&](const Entry& one) { return now_ms - one.used_ms >= KEEP_MS; });
}

}  // namespace corvo::engine
