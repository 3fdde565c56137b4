#include "infra/corvo_logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cctype>
#include <cstring>
#include <ctime>
#include <deque>
#include <fstream>
#include <iterator>

#include "utils/clock.h"
#include "utils/trusted_open.h"
#include "utils/unique_fd.h"

namespace corvo::Logger {

unsigned detail::g_changes = 1;

namespace {

constexpr size_t MAX_LOCATION = 28;
constexpr size_t MAX_LINE = 8096;

constexpr const char* LEVEL_TEXTS[] = {"QUIET", "ERROR", "WARN ", "INFO ", "DEBUG", "INHERITED"};

class ConsoleLogger : public LoggerInstance {
 public:
    using LoggerInstance::LoggerInstance;
    void write(const char* fmt, va_list args, bool newline) override {
        std::vfprintf(stdout, fmt, args);
        if (newline) std::fputc('\n', stdout);
    }
    void flush() override { std::fflush(stdout); }
};

class SyslogLogger : public LoggerInstance {
 public:
    using LoggerInstance::LoggerInstance;
    void write(const char* fmt, va_list args, bool) override { vsyslog(LOG_NOTICE, fmt, args); }
    void flush() override {}
};

class NULLLogger : public LoggerInstance {
 public:
    using LoggerInstance::LoggerInstance;
    void write(const char*, va_list, bool) override {}
    void flush() override {}
};

/** Makes every log statement ask again. */
void forget_answers() {
    if (++detail::g_changes == 0) ++detail::g_changes;
}

/** The placeholder, which also records the current logger. */
class Guard : public NULLLogger {
 public:
    Guard() : NULLLogger(QUIET, "") {}

    LoggerInstance* current() const { return m_current; }
    void set(LoggerInstance* logger, bool owned) {
        if (!logger) logger = this;
        const bool same = logger == m_current;
        if (m_owned && !same) delete m_current;
        m_owned = owned || (same && m_owned);
        m_current = logger;
        forget_answers();
    }

 private:
    LoggerInstance* m_current = this;
    bool m_owned = false;
};

Guard& guard() {
    // Never destroyed: other static objects may log while the program ends.
    static Guard* const g_logger = new Guard;
    return *g_logger;
}

/**
 * Non-blocking: a pipe that nobody reads costs lines but doesn't block the daemon. No effect on
 * regular files.
 */
UniqueFd open_for_writing(const std::string& filename, int how) {
    return open_unless_trap(filename, O_WRONLY | O_CREAT | O_NONBLOCK | how, 0666);
}

/** Opens for appending, above the standard descriptors, which others may close or print to. */
FILE* open_log_file(const std::string& filename) {
    UniqueFd fd = open_for_writing(filename, O_APPEND);
    if (!fd) return nullptr;
    FILE* file = fdopen(fd.get(), "a");
    if (file) fd.release();
    return file;
}

bool is_regular_file(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

/** A path for opening the same file again, even if it has been renamed. */
std::string path_of(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

/** A full disk may accept part of a line, which would then become the start of the next one. */
void drop_cut_line(FILE* file) {
    std::clearerr(file);
    struct stat info {};
    if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return;
    const UniqueFd reader(open(path_of(fileno(file)).c_str(), O_RDONLY | O_CLOEXEC));
    char tail[MAX_LINE];
    const off_t from = std::max<off_t>(info.st_size - static_cast<off_t>(sizeof tail), 0);
    const ssize_t got = pread(reader.get(), tail, sizeof tail, from);
    if (got <= 0) return;
    const auto* end = static_cast<const char*>(memrchr(tail, '\n', static_cast<size_t>(got)));
    if (!end && from > 0) return;
    const off_t kept = end ? from + (end + 1 - tail) : 0;
    if (kept < info.st_size && ftruncate(fileno(file), kept) != 0) return;
}

std::string location(const char* file, int line) {
    if (!file) return "(-)";
    const char* slash = std::strrchr(file, '/');
    std::string text = std::string(slash ? slash + 1 : file) + ":" + std::to_string(line);
    if (text.size() > MAX_LOCATION) text.erase(0, text.size() - MAX_LOCATION);
    return "(" + text + ")";
}

/** Everything in a line except the caller's text. */
std::string line_prefix(const char* file, int line, const std::string& comp, const char* level_text) {
    const uint64_t now_ms = realtime_ms();
    const auto now_sec = static_cast<time_t>(now_ms / 1000);
    tm local{};
    localtime_r(&now_sec, &local);
    char stamp[20] = "";
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);

    char tag[32];
    std::snprintf(tag, sizeof tag, "[%-6.6s][%s]", comp.c_str(), level_text);
    char text[128];
    std::snprintf(text, sizeof text, "[%5ld] - %s.%-3u - %-30s - %-15s - ", syscall(SYS_gettid), stamp,
                  static_cast<unsigned>(now_ms % 1000), location(file, line).c_str(), tag);
    return text;
}

}  // namespace

CStrRef::CStrRef(const char* text) : m_text(text) {}

CStrRef::CStrRef(const std::string& text) : m_text(nullptr), m_owned(text) {
    m_text = m_owned.c_str();
}

LoggerInstance::LoggerInstance(logger_level_e level, const std::string& filename) : m_level(level) {
    if (!filename.empty()) m_file = open_log_file(filename);
    if (m_file) m_filename = filename;
}

LoggerInstance::~LoggerInstance() {
    if (m_file) std::fclose(m_file);
}

void LoggerInstance::log(const char* file, int line, const std::string& comp, const char* fmt,
                         logger_level_e level, va_list args) {
    if (!pred(level, comp)) return;
    std::string text = as_format(line_prefix(file, line, comp, level_to_str(level)));
    const size_t first = text.size();
    text += fmt;
    if (first < text.size())
        text[first] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[first])));

    // A va_list can be walked only once, and there are two outputs.
    va_list file_args;
    va_copy(file_args, args);
    write(text.c_str(), args, true);
    if (m_file) {
        std::vfprintf(m_file, text.c_str(), file_args);
        std::fputc('\n', m_file);
        std::fflush(m_file);
        if (std::ferror(m_file)) drop_cut_line(m_file);
    }
    va_end(file_args);
}

void LoggerInstance::history(std::vector<std::string>& out, unsigned int lines) {
    if (lines == 0 || !m_file) return;
    std::fflush(m_file);
    // Opening a pipe would block: we hold its other end ourselves.
    const UniqueFd named = open_unless_trap(m_filename, O_RDONLY | O_NONBLOCK);
    if (!named || !is_regular_file(named.get())) return;
    std::ifstream in(path_of(named.get()));
    if (!in) return;

    std::deque<std::string> last;
    char buffer[MAX_LINE];
    while (in.getline(buffer, sizeof buffer)) {
        std::string line;
        if (last.size() == lines) {
            // Reuses the dropped line's memory, so that a big file doesn't cost an allocation per line.
            line = std::move(last.front());
            last.pop_front();
        }
        line = buffer;
        last.push_back(std::move(line));
    }
    out.insert(out.end(), std::make_move_iterator(last.begin()), std::make_move_iterator(last.end()));
}

void LoggerInstance::set_verbosity(logger_level_e level) {
    m_level = level;
    forget_answers();
}

void LoggerInstance::set_verbosity(logger_level_e level, const std::string& comp) {
    m_comps[comp] = level;
    forget_answers();
}

void LoggerInstance::reset_verbosity(logger_level_e level) {
    m_level = level;
    m_comps.clear();
    forget_answers();
}

const char* LoggerInstance::get_verbosity() {
    return level_to_str(m_level);
}

logger_level_e LoggerInstance::get_comp_verb(const std::string& comp) {
    const auto it = m_comps.find(comp);
    return it == m_comps.end() || it->second == INHERITED ? m_level : it->second;
}

std::unordered_map<std::string, logger_level_e> LoggerInstance::get_verbosity_comps() {
    return m_comps;
}

std::string LoggerInstance::get_log_filename() {
    return m_filename;
}

bool LoggerInstance::pred(logger_level_e level, const std::string& comp) {
    const logger_level_e own = m_comps.try_emplace(comp, INHERITED).first->second;
    return level <= (own == INHERITED ? m_level : own);
}

const char* LoggerInstance::level_to_str(logger_level_e level) {
    assert(level < std::size(LEVEL_TEXTS));
    return LEVEL_TEXTS[level];
}

LoggerInstance* get_logger() {
    return guard().current();
}

void open_logger(logger_type_e type, logger_level_e level, const std::string& filename) {
    // The old logger must be gone before the new one opens the same file.
    close_logger();
    if (type == LOGGER_CONSOLE) guard().set(new ConsoleLogger(level, filename), true);
    if (type == LOGGER_SYSLOG) guard().set(new SyslogLogger(level, filename), true);
}

void close_logger() {
    guard().set(nullptr, false);
}

void set_logger(LoggerInstance* logger) {
    guard().set(logger, false);
}

bool pred(logger_level_e level, const std::string& comp) {
    return get_logger()->pred(level, comp);
}

void xlog(const char* file, int line, logger_level_e level, const std::string& comp, CStrRef fmt, ...) {
    va_list args;
    va_start(args, fmt);
    get_logger()->log(file, line, comp, fmt.c_str(), level, args);
    va_end(args);
}

void vlog(const char* file, int line, logger_level_e level, const std::string& comp, CStrRef fmt,
          va_list args) {
    get_logger()->log(file, line, comp, fmt.c_str(), level, args);
}

std::string as_format(const std::string& text) {
    std::string format;
    format.reserve(text.size() + 8);
    for (const char c : text) {
        if (c == '%') format += '%';
        format += c;
    }
    return format;
}

void history(std::vector<std::string>& out, unsigned int lines) {
    get_logger()->history(out, lines);
}

std::string get_log_filename() {
    return get_logger()->get_log_filename();
}

void clear_log_file(const std::string& filename) {
    static_cast<void>(open_for_writing(filename, O_TRUNC));
}

}  // namespace corvo::Logger
