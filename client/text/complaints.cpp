#include "client/text/complaints.h"

#include <algorithm>
#include <numeric>

namespace brumectl {

namespace {

/** Number of letters to insert, remove or change. */
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            size_t change = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, diagonal + 1, change});
        }
    }
    return row.back();
}

/** The word of `known` that `word` was probably meant to be; empty if none is near. */
std::string nearest(const std::string& word, const std::vector<std::string>& known) {
    std::string best;
    size_t least = std::max<size_t>(word.size() < 4 ? 1 : 2, word.size() / 3) + 1;
    for (const std::string& candidate : known) {
        size_t d = distance(word, candidate);
        if (d < least) {
            least = d;
            best = candidate;
        }
    }
    return best;
}

}  // namespace

std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
    std::string near = nearest(word, known);
    return near.empty() || near == word ? "" : " (did you mean '" + near + "'?)";
}

std::string range_complaint(uint64_t least, uint64_t most, const std::string& text) {
    return "must be from " + std::to_string(least) + " to " + std::to_string(most) + ", not '" + text + "'";
}

std::string choice_complaint(const std::vector<std::string>& choices, const std::string& text) {
    std::string list;
    for (const std::string& choice : choices)
        list += (list.empty() ? "" : ", ") + choice;
    return "must be one of " + list + ", not '" + text + "'" + did_you_mean(text, choices);
}

}  // namespace brumectl
