#pragma once
// One list: its items are first collected, then sorted only as far as they are read.

#include <memory>
#include <unordered_map>
#include <vector>

#include "flow_lists.h"
#include "flow_rows.h"

namespace corvo::engine {

class FlowList {
 public:
    virtual ~FlowList() = default;

    /** The member of a page that holds the rows. */
    virtual const char* member() const = 0;
    /** True once everything is collected; nothing is added after that. False if the budget ran out first. */
    bool collected(const Budget& budget) { return m_collected = m_collected || collect(budget); }
    /** Null if the item no longer exists. */
    virtual std::optional<Row> row(const Ranked& item) const = 0;

    Ranking& ranking() { return m_ranking; }

 protected:
    /** Continues collecting; true at the end. */
    virtual bool collect(const Budget& budget) = 0;

    Ranking m_ranking;

 private:
    bool m_collected = false;
};

std::unique_ptr<FlowList> make_flow_list(const Shards& path, const FlowQuery& query, ClockFn clock);
std::unique_ptr<FlowList> make_host_list(const Shards& path);

}  // namespace corvo::engine
