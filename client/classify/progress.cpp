#include "client/classify/progress.h"

#include <algorithm>

namespace brumectl {

namespace {

constexpr int BAR_COLUMNS = 30;

}  // namespace

void Progress::show(const std::string& what, double share) {
    if (!m_terminal.interactive()) return;
    std::string line = padded(bar(share, BAR_COLUMNS), BAR_COLUMNS) + " " + percent_text(share, 0) + "  ";
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
    // Doesn't use print, which may throw: this runs during stack unwinding.
    fputs("\r\x1b[K", m_terminal.stream());
    fflush(m_terminal.stream());
    m_is_shown = false;
}

}  // namespace brumectl
