#include "data_path.h"

#include <arpa/inet.h>
#include <malloc.h>

#include <algorithm>
#include <new>

#include "attributes.h"
#include "engine_error.h"
#include "layers.h"

namespace corvo::engine {
namespace {

constexpr int TICK_MS = 1000;
/** While a round through the flows is under way. */
constexpr int BUSY_TICK_MS = 50;
constexpr uint32_t ENTRIES_PER_TICK = 16384;
/** How far a packet without room for its flow looks for one that is due to be forgotten. */
constexpr uint32_t ENTRIES_PER_REFUSAL = 64;

/** So many flows are worth the time that giving their memory back takes, half a microsecond each. */
constexpr uint32_t WORTH_RELEASING = 4096;
/** Flows often come back soon: their memory is better kept for so long. */
constexpr uint64_t RELEASE_AFTER_MS = 60000;

/** How sure a verdict is, in percent, by nDPI's confidence. */
constexpr uint16_t VISIBILITY[] = {
    0,    // NDPI_CONFIDENCE_UNKNOWN
    25,   // NDPI_CONFIDENCE_MATCH_BY_PORT
    50,   // NDPI_CONFIDENCE_MATCH_BY_IP
    75,   // NDPI_CONFIDENCE_DPI_CACHE
    100,  // NDPI_CONFIDENCE_DPI
};
static_assert(sizeof VISIBILITY / sizeof VISIBILITY[0] == NDPI_CONFIDENCE_MAX);

void move_traffic(Traffic& from, Traffic& to, const Flow& flow) {
    if (&from == &to) return;
    from.packets -= flow.packets;
    from.bytes -= flow.bytes;
    from.flows--;
    to.packets += flow.packets;
    to.bytes += flow.bytes;
    to.flows++;
}

std::string end_text(const FlowKey& key, const void* address, uint16_t port) {
    char text[INET6_ADDRSTRLEN] = {};
    bool v4 = key.version() == 4;
    inet_ntop(v4 ? AF_INET : AF_INET6, address, text, sizeof text);
    return (v4 ? text : "[" + std::string(text) + "]") + ":" + std::to_string(port);
}

}  // namespace

DataPath::DataPath(uint32_t max_flows, ClockFn clock) : m_clock(clock), m_table(max_flows) {
    if (max_flows == 0) throw Error("max_flows is 0, expecting at least 1");
}

void DataPath::push(std::vector<api::pkt_>& pkts, bool extended) {
    uint64_t now_ms = m_clock();
    m_batch.assign(pkts.size(), Item());
    m_pushed.packets += pkts.size();
    for (size_t i = 0; i < pkts.size(); i++) {
        m_pushed.bytes += pkts[i].len;
        handle({pkts[i].data, pkts[i].len, pkts[i].ns_id}, m_batch[i], now_ms, extended);
    }
    for (size_t i = 0; i < pkts.size(); i++) {
        answer(m_batch[i], pkts[i]);
        if (extended) answer_extended(m_batch[i], pkts[i]);
    }
}

void DataPath::observe(const CapturedFrame* frames, size_t count) {
    uint64_t now_ms = m_clock();
    for (size_t i = 0; i < count; i++) {
        Item item;
        handle({frames[i].data, frames[i].len, 0}, item, now_ms, false);
    }
}

void DataPath::handle(const Input& input, Item& item, uint64_t now_ms, bool extended) {
    item.frame = decode_frame(input.data, input.len);
    item.error = item.frame.error;
    if (item.error != api::PKT_OK) {
        m_errors[item.error]++;
        return;
    }
    DirectedKey directed = key_of(item.frame, input.ns_id);
    try {
        Flow* flow = flow_of(directed.key, now_ms);
        if (!flow) {
            item.error = api::PKT_MAX_FLOWS_REACHED;
            m_errors[item.error]++;
            return;
        }
        item.flow = flow;
        flow->last_seen_ms = now_ms;
        Traffic& traffic = traffic_of(*flow);
        traffic.packets++;
        traffic.bytes += input.len;
        traffic.flows += flow->packets == 0;
        flow->packets++;
        flow->bytes += input.len;
        if (item.frame.tcp_flags & TCP_FIN) flow->fin_seen[directed.from_upper] = true;
        if (item.frame.tcp_flags & TCP_RST) flow->reset_seen = true;
        if (!flow->decided) inspect(*flow, item.frame, now_ms, extended);
    } catch (const std::bad_alloc&) {
        item.error = api::PKT_NO_MEM;
        m_errors[item.error]++;
    }
}

// With the verdict, what was counted of the flow so far goes to the protocol that the flow turned out to be.
void DataPath::inspect(Flow& flow, const Frame& frame, uint64_t now_ms, bool extended) {
    Traffic& before = traffic_of(flow);
    try {
        m_classifier.inspect(flow, frame, now_ms, extended);
    } catch (...) {  // the verdict may have been set all the same
        move_traffic(before, traffic_of(flow), flow);
        throw;
    }
    move_traffic(before, traffic_of(flow), flow);
}

/** The flow is about to be forgotten: its class won't change any more. */
void DataPath::settle(const Flow& flow) {
    move_traffic(traffic_of(flow), counts_of(flow).settled, flow);
}

bool DataPath::expire(uint64_t now_ms, uint32_t budget) {
    return m_table.expire(now_ms, budget, [this](const Flow& flow) { settle(flow); });
}

Flow* DataPath::flow_of(const FlowKey& key, uint64_t now_ms) {
    Flow* flow = m_table.find_or_add(key);
    if (flow) return flow;
    expire(now_ms, ENTRIES_PER_REFUSAL);
    return m_table.size() < m_table.max_flows() ? m_table.find_or_add(key) : nullptr;
}

void DataPath::answer(const Item& item, api::pkt_& pkt) {
    pkt.error = item.error;
    pkt.cls = item.flow ? item.flow->verdict.cls() : 0;
    if (pkt.cls)
        pkt.protocol = item.flow->verdict.entry->full;
    else
        pkt.protocol.clear();
}

void DataPath::answer_extended(const Item& item, api::pkt_& pkt) {
    static const Verdict nothing;
    const Flow* flow = item.flow;
    const Verdict& verdict = flow ? flow->verdict : nothing;
    pkt.aging_sec = flow ? flow->aging_sec() : 0;
    pkt.visibility = 0;
    pkt.cat.clear();
    pkt.attr.clear();
    pkt.tph.clear();
    append_layers(item.frame, verdict, pkt.tph);
    if (!flow || verdict.cls() == 0) return;
    pkt.visibility = VISIBILITY[verdict.confidence];
    pkt.cat.emplace_back(verdict.category, verdict.confidence);
    if (flow->attributes)
        pkt.attr = *flow->attributes;
    else if (flow->dissection)
        pkt.attr = attributes_of(*flow->dissection);
    if (verdict.guessed) pkt.attr.emplace_back("guessed=yes");
}

int DataPath::tick() {
    uint64_t now_ms = m_clock();
    m_most_flows = std::max(m_most_flows, m_table.size());
    if (m_most_flows < WORTH_RELEASING || m_table.size() > m_most_flows / 4) m_busy_ms = now_ms;
    if (!expire(now_ms, ENTRIES_PER_TICK)) return BUSY_TICK_MS;
    if (now_ms - m_busy_ms >= RELEASE_AFTER_MS) release_memory();
    return TICK_MS;
}

// The C library keeps what is freed below anything still in use: without this, the process would stay as
// large as its worst moment.
void DataPath::release_memory() {
    if (m_table.size() == 0) m_table.clear();
    malloc_trim(0);
    m_most_flows = m_table.size();
}

std::map<std::string, Counts> DataPath::counts_by_protocol() const {
    std::map<std::string, Counts> out;
    m_classifier.for_each_protocol([&](const ProtocolEntry& entry) {
        Counts& sum = out[entry.full];  // two pairs may have one name
        sum.settled += entry.counts.settled;
        sum.open += entry.counts.open;
    });
    return out;
}

uint32_t DataPath::kill_all_flows() {
    uint32_t count = m_table.size();
    m_most_flows = std::max(m_most_flows, count);
    m_table.for_each([this](const Flow& flow) { return settle(flow), true; });
    m_table.clear();
    return count;
}

std::string DataPath::dump(uint32_t limit) const {
    std::string out;
    uint64_t now_ms = m_clock();
    if (limit == 0) return out;
    m_table.for_each([&](const Flow& flow) {
        const FlowKey& key = flow.key;
        const Verdict& verdict = flow.verdict;
        out += "ns " + std::to_string(key.ns_id()) + " " + ip_protocol_name(key.protocol()) + " " +
               end_text(key, key.lower_address(), key.lower_port()) + " " +
               end_text(key, key.upper_address(), key.upper_port()) + " " +
               (verdict.cls() ? verdict.entry->full : "unclassified") + " cls " +
               std::to_string(verdict.cls()) + " packets " + std::to_string(flow.packets) + " idle_ms " +
               std::to_string(now_ms - flow.last_seen_ms) + "\n";
        return --limit > 0;
    });
    return out;
}

}  // namespace corvo::engine
