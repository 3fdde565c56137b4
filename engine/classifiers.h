#pragma once
// Where data paths get their classifiers. Making one takes some ten milliseconds, so a spare is kept. Workers
// may share this.

#include <memory>
#include <mutex>
#include <utility>

#include "classifier.h"

namespace corvo::engine {

class Classifiers {
 public:
    /**
     * Returns one that has learned nothing. Fast if there is a spare; otherwise as slow
     * as Classifier's constructor.
     */
    std::unique_ptr<Classifier> take() {
        const std::lock_guard lock(m_mutex);
        return m_spare ? std::move(m_spare) : std::make_unique<Classifier>();
    }
    bool has_spare() const {
        const std::lock_guard lock(m_mutex);
        return m_spare != nullptr;
    }
    /** Makes a spare if there is none. Throws what Classifier's constructor throws. */
    void restock() {
        const std::lock_guard lock(m_mutex);
        if (!m_spare) m_spare = std::make_unique<Classifier>();
    }
    /**
     * Keeps a used classifier as the spare if it is clean and there is none; otherwise destroys it. None of
     * its flows may be left.
     */
    void give_back(std::unique_ptr<Classifier> used) {
        const std::lock_guard lock(m_mutex);
        if (m_spare || !used || !used->is_clean()) return;
        used->forget_protocols();
        m_spare = std::move(used);
    }

 private:
    mutable std::mutex m_mutex;
    std::unique_ptr<Classifier> m_spare;
};

}  // namespace corvo::engine
