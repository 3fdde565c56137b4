#pragma once
// The whole terminal for a while. What was on it before, and the way it was set, come back on every way out.

#include <termios.h>

#include <csignal>
#include <string>
#include <vector>

#include "client/text/terminal.h"

namespace brumectl {

/** One line, put together from left to right and never wider than the screen. */
class ScreenLine {
 public:
    ScreenLine(const Terminal& terminal, size_t width) : m_terminal(terminal), m_width(width) {}

    ScreenLine& put(const std::string& text, Terminal::colour_e colour = Terminal::PLAIN);
    /** Blanks up to a column; none if it is passed. */
    ScreenLine& to(size_t column);
    /** So that it ends before a column. */
    ScreenLine& right(const std::string& text, size_t end, Terminal::colour_e colour = Terminal::PLAIN);
    size_t column() const { return m_column; }
    const std::string& text() const { return m_text; }

 private:
    const Terminal& m_terminal;
    size_t m_width;
    size_t m_column = 0;
    std::string m_text;
};

class Screen {
 public:
    static constexpr int SUSPEND_KEY = 'Z' & 31;

    /** @throws Usage if stdin or `out` is no terminal */
    explicit Screen(const Terminal& out);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    int width() const { return m_out.width(); }
    int height() const;
    /** Shows these lines and nothing else. @throws Failure if the terminal is gone */
    void draw(const std::vector<std::string>& lines) const;
    /**
     * A key, 0 after the time-out or when the size has changed, -1 if no key can come any more.
     * @throws Interrupted
     */
    int wait_key(int timeout_ms) const;
    /**
     * Ctrl-Z, a key among others here: gives the terminal back and stops the whole job, as it would do
     * elsewhere. Comes back with the screen when the job is in the foreground again.
     */
    void suspend();

 private:
    void enter();
    void leave() const;

    const Terminal& m_out;
    termios m_before = {};
    struct sigaction m_resize_before = {};
};

}  // namespace brumectl
