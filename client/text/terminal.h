#pragma once
// Text for people: columns, units, bars, colour. Colour and width are those of the stream; text that came
// from outside is made harmless for a terminal first.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace brumectl {

class Terminal {
 public:
    enum colour_e { PLAIN = 0, BOLD, DIM, RED, GREEN, YELLOW, BLUE, CYAN };

    /** Colour only if `stream` is a terminal that isn't "dumb" and NO_COLOR is unset or empty. */
    explicit Terminal(FILE* stream);

    bool interactive() const { return m_interactive; }
    /** Columns; 80 if it is no terminal. */
    int width() const;
    std::string paint(colour_e colour, const std::string& text) const;
    /** Like `flush`, may throw: a reader that takes its time can't keep Ctrl-C from ending the program. */
    void print(const std::string& text) const;
    /**
     * Waits, for as long as somebody reads this: until the time is over or `fd` (-1 for none) can be read.
     * @throws Interrupted, by SIGPIPE when the reader is gone
     */
    void wait(int timeout_ms, int fd = -1) const;
    /** @throws Failure if what was printed can't be written or nobody reads it, Interrupted */
    void flush() const;
    FILE* stream() const { return m_stream; }

 private:
    void await_room() const;

    FILE* m_stream;
    bool m_interactive;
    bool m_colour;
};

/**
 * Columns up to which texts are arranged below each other. Whatever is wider sticks out of its own line: else
 * one of a megabyte would have every other line filled up with a megabyte of blanks.
 */
inline constexpr size_t MAX_ALIGNED = 64;

/** Rows under a head. Cells with `right` stand to the right. No trailing blanks. */
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
 * Control characters, what has no width or turns the direction of writing, and broken UTF-8 become "\x1b" and
 * the like; line breaks too unless kept.
 */
std::string harmless(const std::string& text, bool keep_line_breaks = false);
/** Columns that a UTF-8 text takes (one a character). */
size_t columns(const std::string& text);
/** Filled up with blanks to a number of columns. */
std::string padded(const std::string& text, size_t width);
/** A dash for an empty text. */
std::string or_dash(const std::string& text);
/**
 * As a shell takes it for one word: as it is where nothing in it has a meaning there, else in quotes. Fit for
 * a terminal.
 */
std::string shell_word(const std::string& text);

constexpr uint64_t MIB = uint64_t{1024} * 1024;

/** "17 B", "4.2 KiB", "1.3 GiB". */
std::string bytes_text(uint64_t bytes);
/** "1,234,567". */
std::string count_text(uint64_t count);
/** "1 packet", "1,200 packets". `many` is the word for several. */
std::string counted(uint64_t count, const char* one, const char* many);
/** "12.3 %" of a share from 0 to 1. */
std::string percent_text(double share, int digits = 1);
/** "3 d 04:05:06", or without the days. */
std::string duration_text(uint64_t seconds);
/** Local time, "2026-11-24 13:05:59". */
std::string time_text(int64_t epoch_sec);
/** `share` of `width` columns, in eighths of a block, or in whole signs where the locale has no blocks. */
std::string bar(double share, int width);

/**
 * A text of the program's own with signs that the locale can show: plain ones unless it is UTF-8. They may
 * take more columns, so this comes before a text is arranged. What comes from outside stays as it is.
 */
std::string drawn(const std::string& text);

}  // namespace brumectl
