#include "client/words/log_word.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/context.h"
#include "client/failure.h"
#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "client/text/option_checks.h"
#include "client/text/render.h"
#include "client/wire/daemon_log.h"
#include "client/words/answer.h"
#include "client/words/views.h"

namespace brumectl {

namespace {

constexpr int FOLLOW_INTERVAL_MS = 1000;
/** Lines requested each second; ten times as many, up to the limit, if that isn't enough. */
constexpr unsigned FOLLOW_LINES = 100;
constexpr unsigned MAX_FOLLOW_LINES = 10000;
/** Lines remembered for finding the position again. */
constexpr size_t REMEMBERED_LINES = 50;

/** The levels that the method accepts. */
const Field& level_field() {
    static const std::vector<Field> fields = fields_of(*MethodTable::get().find("log"));
    return *find_field(fields, "verbosity.level");
}

struct LogOptions {
    unsigned lines = 100;
    bool follow = false;
    bool levels = false;
    bool reset = false;
    std::string level = {};
    std::string component = {};
};

class Follower {
 public:
    explicit Follower(Context& context) : m_context(context) {}

    void begin(unsigned lines) {
        std::vector<std::string> window = ask(std::max(lines, FOLLOW_LINES));
        show(window, window.size() - std::min<size_t>(lines, window.size()));
    }

    void step() {
        for (unsigned asked = FOLLOW_LINES;; asked *= 10) {
            std::vector<std::string> window = ask(asked);
            size_t first = first_new_line(m_seen, window);
            bool whole = window.size() < asked;  // the log has no more lines: it has been emptied
            if (first == std::string::npos && !whole && asked < MAX_FOLLOW_LINES) continue;
            if (first == std::string::npos && !whole) m_context.complain("some lines were missed");
            show(window, first == std::string::npos ? 0 : first);
            return;
        }
    }

 private:
    std::vector<std::string> ask(unsigned lines) {
        return lines_of_log(log_beyond_long_lines(m_context.daemon(), lines));
    }

    void show(const std::vector<std::string>& window, size_t first) {
        for (size_t i = first; i < window.size(); ++i)
            m_context.out().print(log_line(m_context.out(), window[i]) + "\n");
        m_context.out().flush();
        m_seen.assign(window.end() - static_cast<long>(std::min(window.size(), REMEMBERED_LINES)),
                      window.end());
    }

    Context& m_context;
    std::vector<std::string> m_seen;
};

void follow(Context& context, unsigned lines) {
    if (context.json()) throw Usage("--follow has no JSON; ask again and again without it");
    Follower follower(context);
    follower.begin(lines);
    for (;;) {
        context.out().wait(FOLLOW_INTERVAL_MS);
        follower.step();
    }
}

void verbosity(Context& context, const LogOptions& options) {
    Json::Value params;
    params["type"] = "verbosity";
    Json::Value& verbosity = params["verbosity"];
    verbosity["cmd"] = options.levels ? "get" : options.reset ? "reset" : "set";
    if (!options.levels) verbosity["level"] = options.level;
    if (!options.component.empty()) verbosity["comp"] = options.component;
    ask_and_show(context, "log", params);
}

void check(const LogOptions& options) {
    bool sets = !options.level.empty();
    if (options.levels && (sets || options.reset || !options.component.empty()))
        throw Usage("--levels shows, it goes with no other option of the levels");
    if (options.reset && !options.component.empty())
        throw Usage("--reset is for all components, it doesn't go with --comp");
    if (!sets && options.reset) throw Usage("--reset needs the --level that all components get");
    if (!sets && !options.component.empty()) throw Usage("--comp needs the --level that it gets");
    if (options.lines == 0 && !options.follow) throw Usage("'--lines' must be at least 1 without --follow");
    if ((sets || options.levels) && options.follow)
        throw Usage("--follow shows lines, it doesn't go with the levels");
}

void log(Context& context, const LogOptions& options) {
    check(options);
    if (options.levels || !options.level.empty()) {
        verbosity(context, options);
    } else if (options.follow) {
        follow(context, options.lines);
    } else if (!context.json()) {
        const Json::Value result = log_beyond_long_lines(context.daemon(), options.lines);
        context.out().print(view(context.out(), "log", result));
    } else {
        Json::Value params;
        params["type"] = "log";
        params["maxlines"] = options.lines;
        context.ask_and_print_reply("log", params);
    }
}

}  // namespace

void add_log(CLI::App& app, Context& context) {
    auto options = std::make_shared<LogOptions>();
    CLI::App* word = app.add_subcommand("log", "Show the log's last lines, or change its levels.");
    word->group("Methods of the daemon");
    word->add_option("-n,--lines", options->lines, "Number of lines")
        ->type_name("NUMBER")
        ->transform(number_between(0, UINT32_MAX))
        ->capture_default_str();
    word->add_flag("-f,--follow", options->follow, "Show new lines as they arrive, until Ctrl-C");
    word->add_flag("--levels", options->levels, "Show the levels and the components");
    restrict_to(*word->add_option("--level", options->level, "Set the global level, or that of --comp"),
                choices_of(*level_field().schema));
    word->add_option("--comp", options->component, "Component whose level to set")
        ->type_name("NAME")
        ->check(not_empty());
    word->add_flag("--reset", options->reset, "Set the global level and drop those of components");
    word->callback([&context, options] { log(context, *options); });
}

}  // namespace brumectl
