#include "client/live/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "client/failure.h"
#include "client/interrupt.h"

namespace brumectl {

namespace {

constexpr const char* ENTER = "\x1b[?1049h\x1b[?25l\x1b[?7l";  // alternate screen, no cursor, no line wrap
constexpr const char* LEAVE = "\x1b[?7h\x1b[?25h\x1b[0m\x1b[?1049l";

/** Exists only to interrupt a wait. */
void on_resize(int) {}

}  // namespace

ScreenLine& ScreenLine::put(const std::string& text, Terminal::colour_e colour) {
    std::string fitting = clipped(drawn(text), m_width - m_column);
    m_text += m_terminal.paint(colour, fitting);
    m_column += columns(fitting);
    return *this;
}

ScreenLine& ScreenLine::to(size_t column) {
    if (column > m_column) put(std::string(column - m_column, ' '));
    return *this;
}

ScreenLine& ScreenLine::right(const std::string& text, size_t end, Terminal::colour_e colour) {
    size_t taken = columns(drawn(text));
    return to(end > taken ? end - taken : 0).put(text, colour);
}

Screen::Screen(const Terminal& out) : m_out(out) {
    if (!out.interactive() || isatty(STDIN_FILENO) == 0)
        throw Usage("this needs a terminal; use -b for plain text");
    struct sigaction action = {};
    action.sa_handler = on_resize;
    sigaction(SIGWINCH, &action, &m_resize_before);
    enter();
}

Screen::~Screen() {
    leave();
    sigaction(SIGWINCH, &m_resize_before, nullptr);
}

void Screen::enter() {
    tcgetattr(STDIN_FILENO, &m_before);
    termios raw = m_before;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    raw.c_cc[VSUSP] = _POSIX_VDISABLE;  // stopped by the terminal, we would leave it in this state
    tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
    fputs(ENTER, m_out.stream());  // not with print: if it threw, nothing would restore the terminal
}

void Screen::leave() const {
    // Likewise; the terminal may also be gone.
    fputs(LEAVE, m_out.stream());
    fflush(m_out.stream());
    tcsetattr(STDIN_FILENO, TCSADRAIN, &m_before);
}

void Screen::suspend() {
    leave();
    kill(0, SIGTSTP);  // SIGCONT continues here
    enter();
}

int Screen::height() const {
    winsize size = {};
    bool known = ioctl(fileno(m_out.stream()), TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    return known ? size.ws_row : 24;
}

void Screen::draw(const std::vector<std::string>& lines) const {
    std::string text = "\x1b[H";
    for (size_t i = 0; i < lines.size(); ++i)
        text += (i > 0 ? "\r\n" : "") + lines[i] + "\x1b[K";
    m_out.print(text + "\x1b[J");
    m_out.flush();
}

int Screen::wait_key(int timeout_ms) const {
    if (!interrupt::wait_readable(STDIN_FILENO, timeout_ms)) return 0;
    unsigned char key = 0;
    return read(STDIN_FILENO, &key, 1) == 1 ? key : -1;
}

}  // namespace brumectl
