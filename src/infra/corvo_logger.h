#pragma once
// The only logging facility: a process-wide current logger with a global level, levels per component, a fixed
// line layout, a destination chosen at start, and an append-only log file in addition. Before `open_logger`
// and after `close_logger` a silent placeholder takes its place, so code can log at any time.

#include <cstdarg>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

namespace corvo::Logger {

enum logger_level_e : unsigned { QUIET = 0, ERROR = 1, WARN = 2, INFO = 3, DEBUG = 4, INHERITED = 5 };
enum logger_type_e : unsigned { LOGGER_CONSOLE = 0, LOGGER_SYSLOG = 1 };

/** A format that is either referenced (a literal) or owned (a string). */
class CStrRef {
 public:
    CStrRef(const char* text);         // NOLINT: implicit by design
    CStrRef(const std::string& text);  // NOLINT
    CStrRef(const CStrRef&) = delete;
    CStrRef& operator=(const CStrRef&) = delete;
    const char* c_str() const { return m_text; }

 private:
    const char* m_text;  ///< valid in both cases; may point into `m_owned`
    std::string m_owned;
};

/** A destination. Subclasses differ only in `write` and `flush`. */
class LoggerInstance {
 public:
    /** If the file can't be opened, there is simply none: the name stays empty. */
    LoggerInstance(logger_level_e level, const std::string& filename);
    LoggerInstance(const LoggerInstance&) = delete;
    LoggerInstance& operator=(const LoggerInstance&) = delete;
    virtual ~LoggerInstance();

    virtual void log(const char* file, int line, const std::string& comp, const char* fmt,
                     logger_level_e level, va_list args);
    /**
     * Appends the last `lines` lines of the log file to `out`, oldest first, without line ends. Reading stops
     * at a line of more than 8095 characters.
     */
    virtual void history(std::vector<std::string>& out, unsigned int lines);
    virtual void set_verbosity(logger_level_e level);
    virtual void set_verbosity(logger_level_e level, const std::string& comp);
    virtual void reset_verbosity(logger_level_e level);
    virtual const char* get_verbosity();
    virtual logger_level_e get_comp_verb(const std::string& comp);
    virtual std::unordered_map<std::string, logger_level_e> get_verbosity_comps();
    virtual std::string get_log_filename();
    virtual void write(const char* fmt, va_list args, bool newline) = 0;
    virtual void flush() = 0;

    bool pred(logger_level_e level, const std::string& comp);
    const char* level_to_str(logger_level_e level);

 private:
    logger_level_e m_level;
    FILE* m_file = nullptr;
    std::string m_filename;
    std::unordered_map<std::string, logger_level_e> m_comps;
};

LoggerInstance* get_logger();
void open_logger(logger_type_e type, logger_level_e level, const std::string& filename);
void close_logger();
/** Doesn't take ownership. Null restores the placeholder. */
void set_logger(LoggerInstance* logger);

/** Whether a message would be logged. A component asked about for the first time is added as INHERITED. */
bool pred(logger_level_e level, const std::string& comp);
void xlog(const char* file, int line, logger_level_e level, const std::string& comp, CStrRef fmt, ...);
void vlog(const char* file, int line, logger_level_e level, const std::string& comp, CStrRef fmt,
          va_list args);
/** A format that prints `text` literally: for texts from outside and composed texts. */
std::string as_format(const std::string& text);

void history(std::vector<std::string>& out, unsigned int lines);
std::string get_log_filename();
/** Creates or truncates the file. Failures are ignored. */
void clear_log_file(const std::string& filename);

namespace detail {
/** Lets the compiler check the arguments against the format; never called. */
[[gnu::format(printf, 1, 2)]] inline void check_format(const char*, ...) {}

/** Incremented whenever results of `pred` may have changed: another logger, another level. Never 0. */
extern unsigned g_changes;

/** A log statement's cached result of `pred`, so that a disabled statement costs only a comparison. */
class Statement {
 public:
    bool passes(logger_level_e level, const std::string& comp) {
        if (m_asked_at != g_changes) {
            m_passes = pred(level, comp);
            m_asked_at = g_changes;
        }
        return m_passes;
    }

 private:
    unsigned m_asked_at = 0;
    bool m_passes = false;
};
}  // namespace detail

}  // namespace corvo::Logger

/**
 * The log statement: tests the level first and evaluates the arguments only if needed. `fmt` must be a
 * literal. `comp` must be a named std::string that never changes, because the statement caches the result
 * for it.
 */
#define CORVO_LOG(level, comp, ...)                                                               \
    do {                                                                                          \
        if (false) ::corvo::Logger::detail::check_format(__VA_ARGS__);                            \
        static ::corvo::Logger::detail::Statement log_statement;                                  \
        if (log_statement.passes(::corvo::Logger::level, comp))                                   \
            ::corvo::Logger::xlog(__FILE__, __LINE__, ::corvo::Logger::level, comp, __VA_ARGS__); \
    } while (false)

/** Logs a std::string: percent signs are literal; the first letter is capitalised as in any line. */
#define CORVO_LOG_TEXT(level, comp, text)                                           \
    do {                                                                            \
        static ::corvo::Logger::detail::Statement log_statement;                    \
        if (log_statement.passes(::corvo::Logger::level, comp))                     \
            ::corvo::Logger::xlog(__FILE__, __LINE__, ::corvo::Logger::level, comp, \
                                  ::corvo::Logger::as_format(text));                \
    } while (false)
