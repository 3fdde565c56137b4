#pragma once
// A progress bar on stderr for long work, removed when the work is over, however it ends.

#include <cstddef>
#include <string>

#include "client/text/terminal.h"

namespace brumectl {

class Progress {
 public:
    /** Shows nothing unless `terminal` is one. It must outlive this object. */
    explicit Progress(const Terminal& terminal) : m_terminal(terminal) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    /** `share` is from 0 to 1. */
    void show(const std::string& what, double share);
    /** Removes the bar; call before printing other lines. */
    void clear();

 private:
    const Terminal& m_terminal;
    bool m_is_shown = false;
};

}  // namespace brumectl
