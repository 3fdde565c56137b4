#include "ranking.h"

#include <algorithm>

namespace corvo::engine {
namespace {

/** Ranges this short are sorted in one go. */
constexpr size_t FEW = 512;

bool before(const Ranked& a, const Ranked& b) {
    return a.before(b);
}

}  // namespace

const Ranked* Ranking::at(size_t position, const Budget& budget) {
    if (m_ends.empty() && m_ordered == 0) m_ends.push_back(m_items.size());
    while (m_ordered <= position) {
        const size_t end = m_ends.back();
        const auto first = m_items.begin() + static_cast<ptrdiff_t>(m_ordered);
        if (end - m_ordered > FEW) {
            if (budget.spent()) return nullptr;
            split(end);
            continue;
        }
        std::sort(first, m_items.begin() + static_cast<ptrdiff_t>(end), before);
        m_ordered = end;
        m_ends.pop_back();
    }
    return &m_items[position];
}

// Pivot: the median of three random picks, which nobody can predict well enough to make every split useless.
void Ranking::split(size_t end) {
    Ranked picked[3];
    for (Ranked& one : picked) {
        m_random = m_random * 6364136223846793005u + 1442695040888963407u;
        one = m_items[m_ordered + (m_random >> 33) % (end - m_ordered)];
    }
    std::sort(std::begin(picked), std::end(picked), before);
    const auto first = m_items.begin() + static_cast<ptrdiff_t>(m_ordered);
    const auto middle = std::partition(first, m_items.begin() + static_cast<ptrdiff_t>(end),
                                       [&](const Ranked& one) { return one.before(picked[1]); });
    if (middle != first) m_ends.push_back(static_cast<size_t>(middle - m_items.begin()));
}

}  // namespace corvo::engine
