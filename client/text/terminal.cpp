#include "client/text/terminal.h"

#include <langinfo.h>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "client/failure.h"
#include "client/interrupt.h"

namespace brumectl {

namespace {

constexpr const char* COLOUR_CODE[] = {"", "1", "2", "31", "32", "33", "34", "36"};

/** Substitutes for characters that the locale doesn't have. */
constexpr struct {
    const char* sign;
    const char* plain;
} DRAWN_SIGNS[] = {{"…", "..."}, {"–", "-"}, {"●", "*"}, {"×", "x"}, {"µ", "u"}};

bool is_utf8() {
    return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

bool wants_colour(FILE* stream) {
    const char* no_color = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    if (no_color != nullptr && *no_color != '\0') return false;
    return isatty(fileno(stream)) != 0 && term != nullptr && strcmp(term, "dumb") != 0;
}

/** Length of the well-formed UTF-8 character at `at`; 0 if there is none. */
size_t utf8_length(const std::string& text, size_t at) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char first = byte(at);
    size_t len = first < 0x80                    ? 1
                 : first >= 0xc2 && first < 0xe0 ? 2
                 : (first & 0xf0) == 0xe0        ? 3
                 : first >= 0xf0 && first < 0xf5 ? 4
                                                 : 0;
    if (len == 0 || at + len > text.size()) return 0;
    for (size_t i = 1; i < len; ++i)
        if ((byte(at + i) & 0xc0) != 0x80) return 0;
    if (first == 0xe0 && byte(at + 1) < 0xa0) return 0;
    if (first == 0xed && byte(at + 1) >= 0xa0) return 0;
    if (first == 0xf0 && byte(at + 1) < 0x90) return 0;
    if (first == 0xf4 && byte(at + 1) >= 0x90) return 0;
    return len;
}

/** Decodes the well-formed character of `len` bytes at `at`. */
char32_t code_point(const std::string& text, size_t at, size_t len) {
    constexpr unsigned FIRST_BITS[] = {0, 0x7f, 0x1f, 0x0f, 0x07};
    char32_t code = static_cast<unsigned char>(text[at]) & FIRST_BITS[len];
    for (size_t i = 1; i < len; ++i)
        code = code << 6 | (static_cast<unsigned char>(text[at + i]) & 0x3f);
    return code;
}

/** Characters that a terminal obeys instead of showing, or that make a text look like another one. */
constexpr struct {
    char32_t first;
    char32_t last;
} CONTROLS[] = {
    {0x00, 0x1f},        // C0
    {0x7f, 0x9f},        // DEL, C1
    {0x061c, 0x061c},    // turns the direction of writing
    {0x200b, 0x200f},    // no width; marks of direction
    {0x2028, 0x202e},    // line and paragraph separators; turn the direction
    {0x2060, 0x206f},    // no width; isolate a direction
    {0xfeff, 0xfeff},    // no width
    {0xfff9, 0xfffb},    // annotations
    {0xe0000, 0xe007f},  // tags
};

bool is_control(char32_t code) {
    return std::any_of(std::begin(CONTROLS), std::end(CONTROLS),
                       [code](const auto& range) { return range.first <= code && code <= range.last; });
}

std::string format(const char* fmt, double number, const char* unit) {
    char buf[64];
    snprintf(buf, sizeof(buf), fmt, number, unit);
    return buf;
}

[[noreturn]] void fail_writing(FILE* stream, int err) {
    clearerr(stream);
    // The reader has seen enough, like `head`: not an error to report.
    if (err == EPIPE) throw Interrupted(SIGPIPE);
    throw Failure(std::string("the output can't be written: ") + strerror(err));
}

}  // namespace

Terminal::Terminal(FILE* stream)
    : m_stream(stream), m_interactive(isatty(fileno(stream)) != 0), m_colour(wants_colour(stream)) {}

int Terminal::width() const {
    winsize size = {};
    if (ioctl(fileno(m_stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return 80;
}

std::string Terminal::paint(colour_e colour, const std::string& text) const {
    if (!m_colour || colour == PLAIN || text.empty()) return text;
    return std::string("\x1b[") + COLOUR_CODE[colour] + "m" + text + "\x1b[0m";
}

/** Signals may arrive here but not during a write, which may last as long as its reader likes. */
void Terminal::await_room() const {
    std::vector<pollfd> fds{{fileno(m_stream), POLLOUT, 0}};
    while (interrupt::wait(fds, -1) == 0)
        continue;
}

void Terminal::print(const std::string& text) const {
    // A pipe with room accepts this much without blocking.
    constexpr size_t MOST = PIPE_BUF;
    for (size_t at = 0; at < text.size(); at += MOST) {
        const size_t size = std::min(text.size() - at, MOST);
        const bool is_kept = __flbf(m_stream) == 0 && __fpending(m_stream) + size < __fbufsize(m_stream);
        if (!is_kept) await_room();
        if (fwrite(text.data() + at, 1, size, m_stream) != size) fail_writing(m_stream, errno);
    }
}

void Terminal::wait(int timeout_ms, int fd) const {
    std::vector<pollfd> fds{{fileno(m_stream), 0, 0}, {fd, POLLIN, 0}};
    if (interrupt::wait(fds, timeout_ms) > 0 && fds[0].revents != 0) throw Interrupted(SIGPIPE);
}

void Terminal::flush() const {
    if (__fpending(m_stream) == 0) return;
    await_room();
    if (fflush(m_stream) != 0) fail_writing(m_stream, errno);
}

std::string TextTable::text(const Terminal& terminal) const {
    std::vector<size_t> widths;
    for (const std::string& title : m_head)
        widths.push_back(std::min(columns(title), MAX_ALIGNED));
    for (const auto& row : m_rows)
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i)
            widths[i] = std::max(widths[i], std::min(columns(row[i].text), MAX_ALIGNED));
    auto line = [&](const std::vector<Cell>& cells) {
        std::string out;
        std::string pending;
        for (size_t i = 0; i < cells.size(); ++i) {
            const Cell& cell = cells[i];
            const size_t taken = columns(cell.text);
            const std::string fill(taken < widths[i] ? widths[i] - taken : 0, ' ');
            if (cell.right) pending += fill;
            if (!cell.text.empty()) {
                out += pending + terminal.paint(cell.colour, cell.text);
                pending.clear();
            }
            pending += (cell.right ? std::string() : fill) + "  ";
        }
        return out + "\n";
    };
    std::vector<Cell> head;
    for (size_t i = 0; i < m_head.size(); ++i)
        head.push_back(
            {m_head[i], !m_rows.empty() && i < m_rows[0].size() && m_rows[0][i].right, Terminal::BOLD});
    std::string out = line(head);
    for (const auto& row : m_rows)
        out += line(row);
    return out;
}

std::string harmless(const std::string& text, bool keep_line_breaks) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        size_t len = utf8_length(text, at);
        bool kept = keep_line_breaks && (text[at] == '\n' || text[at] == '\t');
        if (len != 0 && (kept || !is_control(code_point(text, at, len)))) {
            out.append(text, at, len);
            at += len;
            continue;
        }
        for (size_t end = at + std::max<size_t>(len, 1); at < end; ++at) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\x%02x", static_cast<unsigned char>(text[at]));
            out += buf;
        }
    }
    return out;
}

size_t columns(const std::string& text) {
    return static_cast<size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string clipped(const std::string& text, size_t width) {
    size_t taken = 0;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool begins = (static_cast<unsigned char>(text[at]) & 0xc0) != 0x80;
        if (begins && taken++ == width) return text.substr(0, at);
    }
    return text;
}

std::string padded(const std::string& text, size_t width) {
    const size_t taken = columns(text);
    return taken < width ? text + std::string(width - taken, ' ') : text;
}

std::string or_dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

std::string shell_word(const std::string& text) {
    constexpr const char* PLAIN_SIGNS = "_./:@%+=,-";
    const std::string shown = harmless(text);
    auto is_plain = [](char c) {
        return isalnum(static_cast<unsigned char>(c)) != 0 || (c & 0x80) != 0 ||
               (c != '\0' && strchr(PLAIN_SIGNS, c) != nullptr);
    };
    if (!text.empty() && shown == text && std::all_of(text.begin(), text.end(), is_plain)) return text;
    // $'…' understands the escapes that `harmless` makes of control characters.
    const bool has_escapes = shown != text;
    std::string out = has_escapes ? "$'" : "'";
    for (char c : text) {
        if (c == '\'')
            out += has_escapes ? "\\'" : "'\\''";
        else
            out += has_escapes && c == '\\' ? "\\\\" : std::string(1, c);
    }
    return harmless(out) + "'";
}

std::string bytes_text(uint64_t bytes) {
    constexpr const char* UNITS[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(UNITS)) {
        value /= 1024;
        ++unit;
    }
    return format(unit == 0 ? "%.0f %s" : "%.1f %s", value, UNITS[unit]);
}

std::string count_text(uint64_t count) {
    std::string digits = std::to_string(count);
    for (size_t at = digits.size(); at > 3;)
        digits.insert(at -= 3, ",");
    return digits;
}

std::string counted(uint64_t count, const char* one, const char* many) {
    return count_text(count) + " " + (count == 1 ? one : many);
}

std::string percent_text(double share, int digits) {
    char buf[64];
    snprintf(buf, sizeof(buf), "%.*f %%", digits, share * 100);
    return buf;
}

std::string duration_text(uint64_t seconds) {
    char buf[64];
    uint64_t days = seconds / 86400;
    int len = days > 0 ? snprintf(buf, sizeof(buf), "%" PRIu64 " d ", days) : 0;
    snprintf(buf + len, sizeof(buf) - static_cast<size_t>(len), "%02u:%02u:%02u",
             static_cast<unsigned>(seconds / 3600 % 24), static_cast<unsigned>(seconds / 60 % 60),
             static_cast<unsigned>(seconds % 60));
    return buf;
}

std::string time_text(int64_t epoch_sec) {
    time_t t = static_cast<time_t>(epoch_sec);
    tm local = {};
    localtime_r(&t, &local);
    char buf[32];
    strftime(buf, sizeof(buf), "%Y-%m-%d %H:%M:%S", &local);
    return buf;
}

std::string bar(double share, int width) {
    constexpr const char* EIGHTHS[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    int eighths = static_cast<int>(std::lround(std::clamp(share, 0.0, 1.0) * width * 8));
    if (!is_utf8()) return std::string(static_cast<size_t>(eighths + 4) / 8, '#');
    std::string out;
    for (int i = 0; i < eighths / 8; ++i)
        out += "█";
    return out + EIGHTHS[eighths % 8];
}

std::string drawn(const std::string& text) {
    if (is_utf8()) return text;
    std::string out = text;
    for (const auto& [sign, plain] : DRAWN_SIGNS)
        for (size_t at = 0; (at = out.find(sign, at)) != std::string::npos; at += strlen(plain))
            out.replace(at, strlen(sign), plain);
    return out;
}

}  // namespace brumectl
