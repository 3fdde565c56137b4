#pragma once
// Where data paths get their classifiers from: making one takes some ten milliseconds, so a spare one is
// kept.

#include <memory>
#include <utility>

#include "classifier.h"

namespace corvo::engine {

class Classifiers {
 public:
    /** One that has learned nothing. Quick if there is a spare one; otherwise as Classifier's constructor. */
    std::unique_ptr<Classifier> take() {
        return m_spare ? std::move(m_spare) : std::make_unique<Classifier>();
    }
    bool has_spare() const { return m_spare != nullptr; }
    /** Makes a spare one if there is none. Throws as Classifier's constructor. */
    void restock() {
        if (!m_spare) m_spare = std::make_unique<Classifier>();
    }
    /** Keeps one whose flows are gone, if it is clean and none is there; destroys it otherwise. */
    void give_back(std::unique_ptr<Classifier> used) {
        if (m_spare || !used || !used->is_clean()) return;
        used->forget_protocols();
        m_spare = std::move(used);
    }

 private:
    std::unique_ptr<Classifier> m_spare;
};

}  // namespace corvo::engine
