#pragma once
// Lists of a data path's flows or hosts, returned in pages. A page is limited in bytes and time; the next one
// continues where it stopped. The order is fixed when a list is begun.

#include <json/value.h>

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "ranking.h"
#include "shards.h"

namespace corvo::engine {

/** Selects flows and their order. */
struct FlowQuery {
    enum sort_e { BY_BYTES, BY_PACKETS, BY_FIRST_PACKET };

    struct Address {
        uint64_t words[2] = {};  ///< as in FlowKey
        uint8_t version = 0;
    };

    sort_e sort = BY_BYTES;
    bool guess = true;     ///< if false, guessed flows count as unclassified
    std::string protocol;  ///< empty: any
    std::optional<Address> address;
    std::optional<uint16_t> port;
    std::optional<uint32_t> ns_id;

    bool matches(const Flow& flow) const;
};

/** Throws Error if the text isn't an IPv4 or IPv6 address. */
FlowQuery::Address parse_address(const std::string& text);

class FlowList;

class FlowLists {
 public:
    static constexpr size_t MAX_LISTS = 4;
    static constexpr size_t PAGE_BYTES = 60000;
    static constexpr uint64_t PAGE_MS = 15;
    static constexpr uint64_t KEEP_MS = 60000;

    /** `first_id`: cursors of other paths must have smaller numbers, or far larger ones. */
    FlowLists(const Shards& path, uint64_t first_id, ClockFn clock);
    ~FlowLists();

    // Each returns an object with the rows under "flows" or "hosts", "total" once it is known, and "cursor"
    // unless this is the last page. A cursor continues its list; throws Error if that list has ended or is of
    // the other kind.
    Json::Value flows(const FlowQuery& query, uint32_t limit);
    Json::Value hosts(uint32_t limit);
    Json::Value next(const char* member, const std::string& cursor, uint32_t limit);

    /** Ends lists that haven't been used for a while. */
    void tick(uint64_t now_ms);

 private:
    struct Entry {
        uint64_t id;
        uint64_t used_ms;
        std::unique_ptr<FlowList> list;
    };

    Json::Value begin(std::unique_ptr<FlowList> list, uint32_t limit);
    Json::Value page(std::list<Entry>::iterator entry, size_t position, uint32_t limit);

    const Shards& m_path;
    ClockFn m_clock;
    uint64_t m_next_id;
    std::list<Entry> m_lists;  ///< most recently used last
};

}  // namespace corvo::engine
