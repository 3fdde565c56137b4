#pragma once
// Text for people: columns, units, bars, colour. Colour and width are those of the stream. Text from outside
// is first made harmless for a terminal.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace brumectl {

class Terminal {
 public:
    enum colour_e { PLAIN = 0, BOLD, DIM, RED, GREEN, YELLOW, BLUE, CYAN };

    /** Uses colour only if `stream` is a terminal that isn't "dumb" and NO_COLOR is unset or empty. */
    explicit Terminal(FILE* stream);

    bool interactive() const { return m_interactive; }
    /** In columns; 80 if it isn't a terminal. */
    int width() const;
    std::string paint(colour_e colour, const std::string& text) const;
    /** May throw like `flush`: a slow reader can't keep Ctrl-C from ending the program. */
    void print(const std::string& text) const;
    /**
     * Waits as long as somebody is reading the output: until the time is up or `fd` (-1 for none)
     * is readable.
     * Throws Interrupted, with SIGPIPE when the reader is gone.
     */
    void wait(int timeout_ms, int fd = -1) const;
    /** Throws Failure if the output can't be written or nobody reads it; Interrupted. */
    void flush() const;
    FILE* stream() const { return m_stream; }

 private:
    void await_room() const;

    FILE* m_stream;
    bool m_interactive;
    bool m_colour;
};

/**
 * Widest column to which texts are aligned. Wider texts stick out of their own line only; otherwise a text of
 * a megabyte would pad every other line with a megabyte of blanks.
 */
inline constexpr size_t MAX_ALIGNED = 64;

/** Rows under a header. Cells with `right` are right-aligned. No trailing blanks. */
class TextTable {
 public:
    explicit TextTable(std::vector<std::string> head) : m_head(std::move(head)) {}
    struct Cell {
        std::string text;
        bool right = false;
        Terminal::colour_e colour = Terminal::PLAIN;
    };
    void add(std::vector<Cell> row) { m_rows.push_back(std::move(row)); }
    bool empty() const { return m_rows.empty(); }
    std::string text(const Terminal& terminal) const;

 private:
    std::vector<std::string> m_head;
    std::vector<std::vector<Cell>> m_rows;
};

/**
 * Turns control characters, characters without width or that change the writing direction, and broken UTF-8
 * into "\x1b" and the like; line breaks too unless kept.
 */
std::string harmless(const std::string& text, bool keep_line_breaks = false);
/** Width of a UTF-8 text in columns (one per character). */
size_t columns(const std::string& text);
/** The longest beginning of a UTF-8 text that takes at most `width` columns. */
std::string clipped(const std::string& text, size_t width);
/** Padded with blanks to a number of columns. */
std::string padded(const std::string& text, size_t width);
/** A dash if the text is empty. */
std::string or_dash(const std::string& text);
/** Quotes a text for a shell if necessary, so that it is one word there. Safe for a terminal. */
std::string shell_word(const std::string& text);

constexpr uint64_t MIB = uint64_t{1024} * 1024;

/** "17 B", "4.2 KiB", "1.3 GiB". */
std::string bytes_text(uint64_t bytes);
/** "1,234,567". */
std::string count_text(uint64_t count);
/** "1 packet", "1,200 packets". `many` is the plural. */
std::string counted(uint64_t count, const char* one, const char* many);
/** "12.3 %" for a share from 0 to 1. */
std::string percent_text(double share, int digits = 1);
/** "3 d 04:05:06", or without the days. */
std::string duration_text(uint64_t seconds);
/** Local time, "2026-11-24 13:05:59". */
std::string time_text(int64_t epoch_sec);
/** `share` of `width` columns, in eighths of a block, or in whole characters if the locale has no blocks. */
std::string bar(double share, int width);

/**
 * The program's own text with characters that the locale can show: plain ones unless it uses UTF-8. These may
 * take more columns, so call this before aligning a text. Don't use it for text from outside.
 */
std::string drawn(const std::string& text);

}  // namespace brumectl
