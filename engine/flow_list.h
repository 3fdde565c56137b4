#pragma once
// One list: first all that belongs to it is collected, then it is put in order as far as it is looked at.

#include <memory>
#include <unordered_map>
#include <vector>

#include "flow_lists.h"
#include "flow_rows.h"

namespace corvo::engine {

class FlowList {
 public:
    virtual ~FlowList() = default;

    /** The member of a page that has the rows. */
    virtual const char* member() const = 0;
    /** True once all is collected, and from then on nothing is added; false if the budget was spent before.
     */
    bool collected(const Budget& budget) { return m_collected = m_collected || collect(budget); }
    /** Null if it has gone since. */
    virtual std::optional<Row> row(const Ranked& item) const = 0;

    Ranking& ranking() { return m_ranking; }

 protected:
    /** Goes on with collecting; true at the end. */
    virtual bool collect(const Budget& budget) = 0;

    Ranking m_ranking;

 private:
    bool m_collected = false;
};

std::unique_ptr<FlowList> make_flow_list(const DataPath& path, const FlowQuery& query, ClockFn clock);
std::unique_ptr<FlowList> make_host_list(const DataPath& path);

}  // namespace corvo::engine
