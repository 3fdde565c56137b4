#pragma once
// How many frames to push at once, so that the daemon, which does nothing else meanwhile, is soon back for
// others: found out by how long it takes.

#include <algorithm>
#include <cstddef>

namespace brumectl {

class Pace {
 public:
    static constexpr double AIM_MS = 8;
    static constexpr size_t LEAST = 50;

    /** `first` of them to begin with, never more than `most`. */
    Pace(size_t first, size_t most) : m_frames(first), m_most(most) {}

    size_t frames() const { return m_frames; }
    /** So many frames took that long, of a piece that was as large as it should be. */
    void took(size_t frames, double ms) {
        const double fitting = static_cast<double>(frames) * AIM_MS / std::max(ms, 0.01);
        const double least = static_cast<double>(LEAST);
        // By no more than twice: a frame isn't like the other.
        const double most = static_cast<double>(std::min(m_most, 2 * m_frames));
        m_frames = static_cast<size_t>(std::clamp(fitting, least, std::max(most, least)));
    }

 private:
    size_t m_frames;
    size_t m_most;
};

}  // namespace brumectl
