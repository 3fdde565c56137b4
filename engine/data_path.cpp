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
/** While a pass over the flows is in progress. */
constexpr int BUSY_TICK_MS = 50;
constexpr uint32_t ENTRIES_PER_TICK = 16384;
/** A tick also ends after this long: reporting a flow takes longer than forgetting it. */
constexpr uint64_t LONGEST_TICK_MS = 10;
constexpr uint32_t ENTRIES_PER_STEP = 1024;
/** How many entries a packet without room for its flow may search for a flow to evict. */
constexpr uint32_t ENTRIES_PER_LOOK = 64;
/** Flows seen more recently than this aren't evicted. */
constexpr uint64_t EVICTABLE_AFTER_MS = 1000;
/** Entries between two clock reads. */
constexpr uint32_t ENTRIES_PER_MOMENT = 64;

/** Returning memory costs half a microsecond per flow; worth it from this many flows on. */
constexpr uint32_t WORTH_RELEASING = 4096;
/** Flows often come back soon, so their memory is kept this long. */
constexpr uint64_t RELEASE_AFTER_MS = 60000;

/** Certainty of a verdict in percent, indexed by nDPI's confidence. */
constexpr uint16_t VISIBILITY[] = {
    0,    // NDPI_CONFIDENCE_UNKNOWN
    25,   // NDPI_CONFIDENCE_MATCH_BY_PORT
    50,   // NDPI_CONFIDENCE_MATCH_BY_IP
    75,   // NDPI_CONFIDENCE_DPI_CACHE
    100,  // NDPI_CONFIDENCE_DPI
};
static_assert(sizeof VISIBILITY / sizeof VISIBILITY[0] == NDPI_CONFIDENCE_MAX);

std::string end_text(const FlowKey& key, const void* address, uint16_t port) {
    char text[INET6_ADDRSTRLEN] = {};
    bool v4 = key.version() == 4;
    inet_ntop(v4 ? AF_INET : AF_INET6, address, text, sizeof text);
    return (v4 ? text : "[" + std::string(text) + "]") + ":" + std::to_string(port);
}

}  // namespace

DataPath::DataPath(Classifiers& classifiers, uint32_t max_flows, kind_e kind, ClockFn clock)
    : m_clock(clock), m_kind(kind), m_classifiers(classifiers), m_table(max_flows) {
    if (max_flows == 0) throw Error("max_flows is 0, expecting at least 1");
}

DataPath::~DataPath() {
    m_classifiers.give_back(std::move(m_classifier));
}

void DataPath::push(std::vector<api::pkt_>& pkts, bool extended) {
    const uint64_t now_ms = m_clock();
    prepare();
    m_outcomes.resize(pkts.size());
    if (extended) m_frames.resize(pkts.size());
    m_pushed.packets += pkts.size();
    for (size_t i = 0; i < pkts.size(); i++) {
        m_pushed.bytes += pkts[i].len;
        const Frame frame = decode_frame(pkts[i].data, pkts[i].len);
        m_outcomes[i] = handle(frame, pkts[i].ns_id, pkts[i].len, now_ms);
        if (extended) m_frames[i] = frame;
    }
    for (size_t i = 0; i < pkts.size(); i++) {
        answer(m_outcomes[i], pkts[i]);
        if (extended) answer_extended(m_outcomes[i], m_frames[i], pkts[i]);
    }
}

void DataPath::push(std::vector<api::pkt_>& pkts, const Deal& deal, unsigned shard, bool extended) {
    const uint64_t now_ms = m_clock();
    m_outcomes.resize(pkts.size());
    for (size_t i = 0; i < pkts.size(); i++) {
        if (deal[i].shard != shard) continue;
        prepare();
        m_pushed += {1, pkts[i].len, 0};
        const Frame& frame = deal[i].frame;
        m_outcomes[i] = frame.error != api::PKT_OK ? failed(frame.error)
                                                   : handle(frame, deal[i].key, pkts[i].len, now_ms);
    }
    for (size_t i = 0; i < pkts.size(); i++) {
        if (deal[i].shard != shard) continue;
        answer(m_outcomes[i], pkts[i]);
        if (extended) answer_extended(m_outcomes[i], deal[i].frame, pkts[i]);
    }
}

void DataPath::prepare() {
    if (!m_classifier) m_classifier = m_classifiers.take();
}

void DataPath::take(const unsigned char* data, uint16_t len, uint32_t ns_id, uint64_t now_ms) noexcept {
    m_pushed += {1, len, 0};
    try {
        prepare();
    } catch (const std::exception&) {
        failed(api::PKT_NO_MEM);
        return;
    }
    handle(decode_frame(data, len), ns_id, len, now_ms);
}

void DataPath::observe(const CapturedFrame* frames, size_t count) {
    const uint64_t now_ms = m_clock();
    if (count > 0) prepare();
    for (size_t i = 0; i < count; i++)
        handle(decode_frame(frames[i].data, frames[i].len), 0, frames[i].wire_len, now_ms);
}

DataPath::Outcome DataPath::handle(const Frame& frame, uint32_t ns_id, uint32_t wire_len, uint64_t now_ms) {
    if (frame.error != api::PKT_OK) return failed(frame.error);
    return handle(frame, key_of_frame(frame, ns_id), wire_len, now_ms);
}

DataPath::Outcome DataPath::handle(const Frame& frame, const DirectedKey& directed, uint32_t wire_len,
                                   uint64_t now_ms) {
    Flow* flow = nullptr;
    try {
        flow = flow_of(directed.key, now_ms);
        if (!flow) return failed(api::PKT_MAX_FLOWS_REACHED);
        count(*flow, directed.from_upper, wire_len, now_ms);
        if (frame.tcp_flags & TCP_FIN) flow->fin_seen[directed.from_upper] = true;
        if (frame.tcp_flags & TCP_RST) flow->reset_seen = true;
        if (!flow->decided) let_decide(*flow, [&] { m_classifier->inspect(*flow, frame, now_ms); });
    } catch (const std::bad_alloc&) {
        return failed(api::PKT_NO_MEM, flow);
    }
    return {flow, api::PKT_OK};
}

DataPath::Outcome DataPath::failed(api::pkt_error_e error, Flow* flow) {
    m_errors[error]++;
    return {flow, error};
}

void DataPath::count(Flow& flow, bool from_upper, uint32_t wire_len, uint64_t now_ms) {
    const bool is_new = flow.all_packets() == 0;
    if (is_new) {
        flow.first_seen_ms = now_ms;
        flow.client_is_upper = from_upper;
        m_undecided++;
    }
    flow.last_seen_ms = now_ms;
    flow.packets[from_upper]++;
    flow.bytes[from_upper] += wire_len;
    add_traffic(flow.verdict, {1, wire_len, is_new});
    if (!flow.decided) open_of(flow.verdict) += {1, wire_len, is_new};
}

Traffic& DataPath::open_of(const Verdict& verdict) {
    return verdict.entry ? verdict.entry->open : m_unclassified_open;
}

void DataPath::take_traffic(const Verdict& verdict, const Traffic& traffic) {
    (verdict.entry ? verdict.entry->traffic : m_unclassified) -= traffic;
    if (verdict.entry && verdict.guessed) verdict.entry->guessed -= traffic;
}

// On a verdict, moves what was counted for the flow so far to the protocol it turned out to be.
template <typename Decide>
void DataPath::let_decide(Flow& flow, Decide decide) {
    const Verdict before = flow.verdict;
    const auto account = [&] {
        if (flow.decided) m_undecided--;
        open_of(before) -= flow.traffic();
        if (!flow.decided) open_of(flow.verdict) += flow.traffic();
        if (before.entry == flow.verdict.entry && before.guessed == flow.verdict.guessed) return;
        take_traffic(before, flow.traffic());
        add_traffic(flow.verdict, flow.traffic());
    };
    try {
        decide();
    } catch (...) {  // the verdict may have been set before the exception
        account();
        throw;
    }
    account();
}

Flow* DataPath::flow_of(const FlowKey& key, uint64_t now_ms) {
    Flow* flow = m_table.find_or_add(key);
    if (flow) return flow;
    make_room(now_ms);
    return m_table.size() < m_table.max_flows() ? m_table.find_or_add(key) : nullptr;
}

void DataPath::make_room(uint64_t now_ms) {
    if (now_ms < m_full_until_ms) return;
    Flow* idlest = nullptr;
    const auto look = [&](Flow& flow) {
        m_looked_at++;
        if (is_due(flow, now_ms))
            visit(flow, now_ms);
        else if (!idlest || flow.last_seen_ms < idlest->last_seen_ms)
            idlest = &flow;
    };
    // A search stops early at the end of a pass.
    if (m_table.go_round(ENTRIES_PER_LOOK, look)) m_table.go_round(ENTRIES_PER_LOOK, look);
    if (m_table.size() < m_table.max_flows()) return forget_looks();
    if (idlest) m_idlest_ms = std::min(m_idlest_ms, idlest->last_seen_ms);
    if (!idlest || now_ms - idlest->last_seen_ms < EVICTABLE_AFTER_MS) {
        if (m_looked_at < m_table.size()) return;
        m_full_until_ms = m_idlest_ms + EVICTABLE_AFTER_MS;
        return forget_looks();
    }
    forget_looks();
    if (m_kind == CAPTURE && !idlest->decided) give_up(*idlest);
    forget(*idlest, m_evicted, FlowWatcher::EVICTED);
}

void DataPath::forget_looks() {
    m_looked_at = 0;
    m_idlest_ms = UINT64_MAX;
}

bool DataPath::is_due(const Flow& flow, uint64_t now_ms) const {
    return m_kind == LIVE && now_ms - flow.last_seen_ms >= flow.aging_sec() * uint64_t{1000};
}

void DataPath::visit(Flow& flow, uint64_t now_ms) {
    if (is_due(flow, now_ms))
        forget(flow, m_aged, flow.is_closed() ? FlowWatcher::ENDED : FlowWatcher::IDLE);
    else if (m_watcher && m_watcher->is_due(flow, now_ms))
        m_watcher->report(flow, *m_classifier, FlowWatcher::ACTIVE);
}

void DataPath::forget(Flow& flow, uint64_t& counter, FlowWatcher::why_e why) {
    if (m_watcher) m_watcher->report(flow, *m_classifier, why);
    if (!flow.decided) {
        m_undecided--;
        open_of(flow.verdict) -= flow.traffic();
    }
    counter++;
    m_table.remove(flow);
}

bool DataPath::finish(uint64_t budget_ms) {
    const uint64_t end_ms = m_clock() + budget_ms;
    while (m_undecided > 0) {
        for (uint32_t i = 0; i < ENTRIES_PER_MOMENT; i++) {
            Flow* flow = m_table.at(m_finish_at);
            m_finish_at = m_finish_at < m_table.entries() ? m_finish_at + 1 : 0;
            if (flow && !flow->decided) give_up(*flow);
        }
        if (m_clock() > end_ms) break;
    }
    return m_undecided == 0;
}

void DataPath::give_up(Flow& flow) {
    try {
        let_decide(flow, [&] { m_classifier->give_up(flow); });
    } catch (const std::bad_alloc&) {
        m_errors[api::PKT_NO_MEM]++;  // the flow has its verdict, but no details
    }
}

void DataPath::remove_all_links() {
    if (m_classifier) m_classifier->forget_links();
}

void DataPath::answer(const Outcome& outcome, api::pkt_& pkt) {
    pkt.error = outcome.error;
    pkt.cls = outcome.flow ? outcome.flow->verdict.cls() : 0;
    if (pkt.cls)
        pkt.protocol = outcome.flow->verdict.entry->full;
    else
        pkt.protocol.clear();
}

void DataPath::answer_extended(const Outcome& outcome, const Frame& frame, api::pkt_& pkt) {
    static const Verdict nothing;
    const Flow* flow = outcome.flow;
    const Verdict& verdict = flow ? flow->verdict : nothing;
    pkt.aging_sec = flow ? flow->aging_sec() : 0;
    pkt.visibility = 0;
    pkt.cat.clear();
    pkt.attr.clear();
    pkt.tph.clear();
    append_layers(frame, verdict, pkt.tph);
    if (!flow || verdict.cls() == 0) return;
    pkt.visibility = VISIBILITY[verdict.confidence];
    pkt.cat.emplace_back(verdict.category, verdict.confidence);
    const auto append = [&](std::string_view name, std::string_view value) {
        pkt.attr.emplace_back(name).append(1, '=').append(value);
    };
    if (flow->dissection) {
        std::string attributes;
        read_attributes(*flow->dissection, attributes);
        for_each_attribute(attributes, append);
    } else if (flow->details) {
        for_each_attribute(flow->details->attributes, append);
    }
    if (verdict.guessed) pkt.attr.emplace_back("guessed=yes");
}

int DataPath::tick() {
    uint64_t now_ms = m_clock();
    forget_looks();  // what this passes over wasn't looked at
    m_most_flows = std::max(m_most_flows, m_table.size());
    if (m_most_flows < WORTH_RELEASING || m_table.size() > m_most_flows / 4) m_busy_ms = now_ms;
    bool at_end = false;
    for (uint32_t done = 0; !at_end && done < ENTRIES_PER_TICK; done += ENTRIES_PER_STEP) {
        if (m_clock() - now_ms >= LONGEST_TICK_MS) break;
        at_end = m_table.go_round(ENTRIES_PER_STEP, [&](Flow& flow) { visit(flow, now_ms); });
    }
    if (!at_end) return BUSY_TICK_MS;
    if (now_ms - m_busy_ms >= RELEASE_AFTER_MS) release_memory();
    return TICK_MS;
}

// The C library holds on to freed memory that lies below anything still in use. Without this, the process
// would stay as large as at its worst moment.
void DataPath::release_memory() {
    if (m_table.size() == 0) m_table.clear();
    malloc_trim(0);
    m_most_flows = m_table.size();
}

std::map<std::string, Counts> DataPath::counts_by_protocol() const {
    std::map<std::string, Counts> out;
    const auto add = [&out](const std::string& name, Traffic traffic, const Traffic& open) {
        if (traffic.packets == 0) return;
        Counts& sum = out[name];  // two pairs may share a name
        sum.open += open;
        sum.settled += traffic -= open;
    };
    add(UNCLASSIFIED, m_unclassified, m_unclassified_open);
    if (m_classifier)
        m_classifier->for_each_protocol(
            [&](const ProtocolEntry& entry) { add(entry.full, entry.traffic, entry.open); });
    return out;
}

uint32_t DataPath::kill_all_flows() {
    uint32_t count = m_table.size();
    m_most_flows = std::max(m_most_flows, count);
    for (uint32_t i = 0; m_watcher && i < m_table.entries(); i++) {
        if (Flow* flow = m_table.at(i)) m_watcher->report(*flow, *m_classifier, FlowWatcher::STOPPED);
    }
    m_table.clear();
    m_undecided = 0;
    m_unclassified_open = {};
    if (m_classifier) m_classifier->close_counts();
    return count;
}

void DataPath::retire() {
    if (m_classifier && m_classifier->is_clean()) m_classifiers.give_back(std::move(m_classifier));
}

std::string DataPath::dump(uint32_t limit) const {
    std::string out;
    uint64_t now_ms = m_clock();
    for (uint32_t i = 0; i < m_table.entries() && limit > 0; i++) {
        const Flow* flow = m_table.at(i);
        if (!flow) continue;
        const FlowKey& key = flow->key;
        const Verdict& verdict = flow->verdict;
        out += "ns " + std::to_string(key.ns_id()) + " " + ip_protocol_name(key.protocol()) + " " +
               end_text(key, key.lower_address(), key.lower_port()) + " " +
               end_text(key, key.upper_address(), key.upper_port()) + " " +
               (verdict.cls() ? verdict.entry->full : UNCLASSIFIED) + " cls " +
               std::to_string(verdict.cls()) + " packets " + std::to_string(flow->all_packets()) +
               " idle_ms " + std::to_string(now_ms - flow->last_seen_ms) + "\n";
        limit--;
    }
    return out;
}

}  // namespace corvo::engine
