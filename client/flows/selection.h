#pragma once
// The first flows in an order, out of any number.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "client/flows/flow_query.h"

namespace brumectl::flows {

template <typename Item>
class Selection {
 public:
    Selection(const FlowQuery& query, uint64_t count) : m_query(query), m_count(count) {}

    void add(const Json::Value& flow, Item item) {
        const bool keep_order = m_query.is_sorted_by_engine();
        if (keep_order && m_rows.size() >= m_count) return;
        m_rows.push_back({keep_order ? SortKey() : m_query.order->key(flow), std::move(item)});
        if (m_rows.size() >= SLACK && m_rows.size() / 2 >= m_count) cut();
    }
    std::vector<Item> take() {
        cut();
        std::vector<Item> out;
        out.reserve(m_rows.size());
        for (Row& row : m_rows)
            out.push_back(std::move(row.item));
        return out;
    }

 private:
    static constexpr size_t SLACK = 1000;
    struct Row {
        SortKey key;
        Item item;
    };

    /** Equal ones stay as they came. */
    void cut() {
        std::stable_sort(m_rows.begin(), m_rows.end(), [this](const Row& a, const Row& b) {
            return m_query.reverse ? b.key < a.key : a.key < b.key;
        });
        if (m_rows.size() > m_count) m_rows.resize(m_count);
    }

    const FlowQuery& m_query;
    const uint64_t m_count;
    std::vector<Row> m_rows;
};

}  // namespace brumectl::flows
