#include "flow_list.h"

#include <arpa/inet.h>
#include <strings.h>

#include <chrono>
#include <cstring>

#include "engine_error.h"
#include "keyed_hash.h"

namespace corvo::engine {
namespace {

/** Entries between two clock reads. */
constexpr uint32_t ENTRIES_PER_MOMENT = 256;

/** One of a path's entries, and how far it has been read. */
struct Place {
    unsigned shard = 0;
    uint32_t entry = 0;
};

/** Calls `visit` with the place and the flow of each entry from `at` on. True at the end of the tables. */
template <typename Visit>
bool for_each_flow(const Shards& path, Place& at, const Budget& budget, Visit visit) {
    for (; at.shard < path.count(); at = {at.shard + 1, 0}) {
        const FlowTable& table = path.at(at.shard).table();
        for (; at.entry < table.entries(); at.entry++) {
            if (at.entry % ENTRIES_PER_MOMENT == 0 && budget.spent()) return false;
            if (const Flow* flow = table.at(at.entry)) visit(at, *flow);
        }
    }
    return true;
}

int64_t realtime_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

class ListOfFlows : public FlowList {
 public:
    ListOfFlows(const Shards& path, const FlowQuery& query, ClockFn clock)
        : m_path(path), m_query(query), m_clock(clock) {}

    const char* member() const override { return "flows"; }

    bool collect(const Budget& budget) override {
        return for_each_flow(m_path, m_at, budget, [this](const Place& place, const Flow& flow) {
            if (!m_query.matches(flow)) return;
            m_ranking.add({rank(flow), place.entry * m_path.count() + place.shard, flow.hash});
        });
    }

    std::optional<Row> row(const Ranked& item) const override {
        const DataPath& shard = m_path.at(item.index % m_path.count());
        const Flow* flow = shard.table().at(item.index / m_path.count());
        if (!flow || flow->hash != item.hash) return std::nullopt;
        const bool live = m_path.kind() == DataPath::LIVE;
        return flow_row(*flow, *shard.classifier(),
                        {m_query.guess, live, live ? realtime_ms() - static_cast<int64_t>(m_clock()) : 0});
    }

 private:
    uint64_t rank(const Flow& flow) const {
        switch (m_query.sort) {
            case FlowQuery::BY_BYTES:
                return flow.all_bytes();
            case FlowQuery::BY_PACKETS:
                return flow.all_packets();
            default:
                return UINT64_MAX - flow.first_seen_ms;
        }
    }

    const Shards& m_path;
    FlowQuery m_query;
    ClockFn m_clock;
    Place m_at;
};

class ListOfHosts : public FlowList {
 public:
    explicit ListOfHosts(const Shards& path) : m_path(path) {}

    const char* member() const override { return "hosts"; }

    bool collect(const Budget& budget) override {
        const auto add_both = [this](const Place&, const Flow& flow) {
            const FlowKey& key = flow.key;
            const bool alone = key.words[0] == key.words[2] && key.words[1] == key.words[3];
            add({key.words[0], key.words[1], key.version()}, flow);
            if (!alone) add({key.words[2], key.words[3], key.version()}, flow);
        };
        if (!for_each_flow(m_path, m_at, budget, add_both)) return false;
        m_known.clear();
        for (; m_ranked < m_hosts.size(); m_ranked++)
            m_ranking.add({m_hosts[m_ranked].traffic.bytes, m_ranked, 0});
        return true;
    }

    std::optional<Row> row(const Ranked& item) const override {
        const Host& host = m_hosts[item.index];
        Row row;
        row.json["address"] = address_text(static_cast<uint8_t>(host.address.words[2]), host.address.words);
        row.json["packets"] = Json::UInt64{host.traffic.packets};
        row.json["bytes"] = Json::UInt64{host.traffic.bytes};
        row.json["flows"] = Json::UInt64{host.traffic.flows};
        row.bytes = 160;  // the longest possible
        return row;
    }

 private:
    struct Address {
        uint64_t words[3];  ///< as in FlowKey, then the version

        bool operator==(const Address& other) const = default;
    };
    struct Hash {
        KeyedHash hash;
        size_t operator()(const Address& address) const { return hash(address.words); }
    };
    struct Host {
        Address address;
        Traffic traffic;
    };

    void add(const Address& address, const Flow& flow) {
        const auto [known, is_new] = m_known.try_emplace(address, static_cast<uint32_t>(m_hosts.size()));
        if (is_new) m_hosts.push_back({address, {}});
        m_hosts[known->second].traffic += flow.traffic();
    }

    const Shards& m_path;
    std::unordered_map<Address, uint32_t, Hash> m_known;  ///< index in `m_hosts`
    std::vector<Host> m_hosts;
    Place m_at;
    uint32_t m_ranked = 0;
};

bool same_word(const std::string& a, const char* b) {
    return strcasecmp(a.c_str(), b) == 0;
}

bool is_protocol(const std::string& wanted, const Verdict& verdict, bool guess) {
    if (verdict.cls() == 0 || (verdict.guessed && !guess)) return same_word(wanted, UNCLASSIFIED);
    if (same_word(wanted, verdict.entry->full.c_str())) return true;
    for (const std::string& layer : verdict.entry->layers) {
        if (same_word(wanted, layer.c_str())) return true;
    }
    return false;
}

}  // namespace

bool FlowQuery::matches(const Flow& flow) const {
    const FlowKey& key = flow.key;
    if (ns_id && *ns_id != key.ns_id()) return false;
    if (port && *port != key.lower_port() && *port != key.upper_port()) return false;
    if (address) {
        const uint64_t* wanted = address->words;
        const uint64_t* ends = key.words;
        if (address->version != key.version() ||
            (std::memcmp(wanted, ends, 16) != 0 && std::memcmp(wanted, ends + 2, 16) != 0))
            return false;
    }
    return protocol.empty() || is_protocol(protocol, flow.verdict, guess);
}

FlowQuery::Address parse_address(const std::string& text) {
    FlowQuery::Address out;
    const bool v6 = text.find(':') != std::string::npos;
    out.version = v6 ? 6 : 4;
    const bool whole = text.find('\0') == std::string::npos;
    if (whole && inet_pton(v6 ? AF_INET6 : AF_INET, text.c_str(), out.words) == 1) return out;
    throw Error("invalid IPv4 / IPv6 address '" + text + "'");
}

std::unique_ptr<FlowList> make_flow_list(const Shards& path, const FlowQuery& query, ClockFn clock) {
    return std::make_unique<ListOfFlows>(path, query, clock);
}

std::unique_ptr<FlowList> make_host_list(const Shards& path) {
    return std::make_unique<ListOfHosts>(path);
}

}  // namespace corvo::engine
