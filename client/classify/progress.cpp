#include "client/classify/progress.h"

#include <algorithm>
#include <cmath>

namespace brumectl {

namespace {

constexpr int BAR_COLUMNS = 30;

}  // namespace

void Progress::show(const std::string& what, double share) {
    if (!m_terminal.interactive()) return;
    std::string filled = bar(share, BAR_COLUMNS);
    filled.append(static_cast<size_t>(BAR_COLUMNS) - columns(filled), ' ');
    std::string line = filled + " " + std::to_string(std::lround(share * 100)) + " %  ";
    const size_t room = static_cast<size_t>(std::max(m_terminal.width() - 1, 0));
    const std::string name = harmless(what);
    if (columns(line) + columns(name) <= room) line += name;
    clear();
    m_terminal.print(m_terminal.paint(Terminal::CYAN, line));
    fflush(m_terminal.stream());
    m_is_shown = true;
}

void Progress::clear() {
    if (!m_is_shown) return;
    // Not by print, which may throw: this runs while an exception is on its way.
    fputs("\r\x1b[K", m_terminal.stream());
    fflush(m_terminal.stream());
    m_is_shown = false;
}

}  // namespace brumectl
