#include "ranking.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace corvo::engine {
namespace {

uint64_t frozen_clock() {
    return 1;
}

/** A millisecond passes each time somebody looks. */
uint64_t hurried_clock() {
    static uint64_t now_ms = 0;
    return ++now_ms;
}

TEST(Ranking, GivesWhatSortingWouldInPiecesThatFitTheBudget) {
    for (const uint64_t values : {uint64_t{1}, uint64_t{50}, uint64_t{UINT32_MAX}}) {
        std::mt19937 random(7);
        std::vector<Ranked> expected;
        Ranking ranking;
        for (uint32_t i = 0; i < 20000; i++) {
            expected.push_back({random() % values, i, 0});
            ranking.add(expected.back());
        }
        std::sort(expected.begin(), expected.end(),
                  [](const Ranked& a, const Ranked& b) { return a.before(b); });
        for (size_t at = 0; at < expected.size();) {
            const Ranked* found = ranking.at(at, Budget(at % 2 ? frozen_clock : hurried_clock, 1));
            if (!found) continue;  // it was cut off, and goes on
            ASSERT_EQ(found->index, expected[at].index) << at;
            at++;
        }
    }
}

}  // namespace
}  // namespace corvo::engine
