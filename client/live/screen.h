#pragma once
// Takes over the whole terminal for a while. Its previous contents and settings are restored however the
// program ends.

#include <termios.h>

#include <csignal>
#include <string>
#include <vector>

#include "client/text/terminal.h"

namespace brumectl {

/** One line, composed from left to right and never wider than the screen. */
class ScreenLine {
 public:
    ScreenLine(const Terminal& terminal, size_t width) : m_terminal(terminal), m_width(width) {}

    ScreenLine& put(const std::string& text, Terminal::colour_e colour = Terminal::PLAIN);
    /** Adds blanks up to a column; none if it has been passed. */
    ScreenLine& to(size_t column);
    /** Adds a text that ends before a column. */
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

    /** Throws Usage unless stdin and `out` are terminals. */
    explicit Screen(const Terminal& out);
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();

    int width() const { return m_out.width(); }
    int height() const;
    /** Shows exactly these lines. Throws Failure if the terminal is gone. */
    void draw(const std::vector<std::string>& lines) const;
    /**
     * Returns a key, 0 after the timeout or when the size has changed, or -1 if no more keys can come.
     * Throws Interrupted.
     */
    int wait_key(int timeout_ms) const;
    /**
     * Handles Ctrl-Z, which arrives as a key here: releases the terminal and stops the whole job, as Ctrl-Z
     * normally does. Returns with the screen restored when the job is in the foreground again.
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
