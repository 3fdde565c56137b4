#pragma once
// Chooses how many frames to push at a time, so that the daemon, which does nothing else meanwhile, is soon
// free for others. It adapts to the time that pushes take.

#include <algorithm>
#include <cstddef>

namespace brumectl {

class Pace {
 public:
    static constexpr double AIM_MS = 8;
    static constexpr size_t LEAST = 50;

    /** Starts with `first` frames; never exceeds `most`. */
    Pace(size_t first, size_t most) : m_frames(first), m_most(most) {}

    size_t frames() const { return m_frames; }
    /** Reports how long a full-sized piece of this many frames took. */
    void took(size_t frames, double ms) {
        const double fitting = static_cast<double>(frames) * AIM_MS / std::max(ms, 0.01);
        const double least = static_cast<double>(LEAST);
        // At most doubles, as frames differ.
        const double most = static_cast<double>(std::min(m_most, 2 * m_frames));
        m_frames = static_cast<size_t>(std::clamp(fitting, least, std::max(most, least)));
    }

 private:
    size_t m_frames;
    size_t m_most;
};

}  // namespace brumectl
