#pragma once
// A bar on stderr for what takes long, gone when the work is over, however it ends.

#include <cstddef>
#include <string>

#include "client/text/terminal.h"

namespace brumectl {

class Progress {
 public:
    /** Shows nothing unless `terminal` is one. It must outlive this. */
    explicit Progress(const Terminal& terminal) : m_terminal(terminal) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    /** `share`: 0 to 1. */
    void show(const std::string& what, double share);
    /** Before other lines are printed. */
    void clear();

 private:
    const Terminal& m_terminal;
    bool m_is_shown = false;
};

}  // namespace brumectl
