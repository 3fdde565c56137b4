#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "client/check/check.h"
#include "client/check/config_check.h"
#include "client/check/daemon_user.h"
#include "client/check/findings_text.h"
#include "client/check/which_build.h"
#include "client/context.h"
#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/text/text_file.h"
#include "client/wire/local_daemon.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

constexpr size_t MAX_CONFIG_BYTES = 16UL * 1024 * 1024;

struct CheckOptions {
    std::vector<std::string> files;
    bool strict = false;
    check::ToldBuild told = {};
};

/** A daemon that hangs must not hold up what needs none. */
constexpr int MAX_ASKING_MS = 2000;

/** What a running daemon says about where the configurations will be used. */
struct Place {
    check::JudgedBuild build = check::JudgedBuild::packaged();
    std::optional<FileReader> user = check::service_user();
};

Place ask_place(Context& context, const check::ToldBuild& told) {
    Place place;
    try {
        std::unique_ptr<Daemon> daemon = context.new_daemon();
        daemon->set_timeout_ms(std::min(context.timeout_ms(), MAX_ASKING_MS));
        const auto pid = static_cast<pid_t>(count_of(member_of(daemon->call("status"), "pid")));
        if (on_this_machine(daemon->address()))
            if (auto user = FileReader::of_process(pid)) place.user = user;
        if (!told.any()) place.build = check::JudgedBuild::asked(*daemon);
    } catch (const Usage&) {
        throw;
    } catch (const Failure&) {
        // No daemon answers, or it isn't one of ours.
    }
    if (told.any()) place.build = check::JudgedBuild::told(told);
    return place;
}

void check_user(const std::optional<FileReader>& user, const std::string& path, check::Report& report) {
    const std::string hindrance = user && path != "-" ? check::hindrance(*user, path) : "";
    if (!hindrance.empty())
        report.add(check::WARNING, 0,
                   "the daemon runs as " + check::name_of(*user->user) + ", who " + hindrance +
                       ": given this file with -c, it logs that and starts without it");
}

void check_files(Context& context, const CheckOptions& options) {
    const Place place = ask_place(context, options.told);
    const check::Settings settings{.build = place.build.build};
    context.err().print("Judged for a " + harmless(place.build.text) + ".\n");
    size_t counts[2] = {};
    size_t unreadable = 0;
    Json::Value list(Json::arrayValue);
    for (const std::string& path : options.files) {
        std::string text;
        try {
            text = read_text(path, MAX_CONFIG_BYTES);
        } catch (const Failure& e) {
            context.complain(e.what());
            ++unreadable;
            continue;
        }
        const std::string name = shown_name(path);
        check::Report report(text);
        check::ConfigCheck(text, settings, report).run();
        check_user(place.user, path, report);
        for (auto severity : {check::WARNING, check::ERROR})
            counts[severity] += report.count(severity);
        if (context.json())
            check::append_json(name, report, list);
        else
            context.out().print(check::findings_text(name, report, context.out()));
    }
    if (context.json()) context.print_json(list);
    if (counts[check::ERROR] > 0 || (options.strict && counts[check::WARNING] > 0))
        throw Failure(check::counts_text(counts[check::ERROR], counts[check::WARNING]));
    if (unreadable > 0) throw Failure("not everything could be checked");
}

struct RunOptions {
    std::string file;
    bool keep_going = false;
    bool force = false;
    check::ToldBuild told = {};
};

/** Queries the daemon that will run the requests. */
void ask_settings(Daemon& daemon, check::Settings& settings) {
    if (auto state = state_of(string_of(member_of(daemon.call("status"), "state")))) settings.state = *state;
    for (const Json::Value& name : daemon.call("cmds"))
        if (name.isString()) settings.methods.push_back(name.asString());
}

/** Shows the reply to one request. Throws what Daemon::call throws. */
void ask(Context& context, const Json::Value& request, const std::string& method, const std::string& head) {
    if (context.json()) return context.ask_and_print_reply(method, request["params"], request["id"]);
    const Json::Value result = context.daemon().call(method, request["params"]);
    const bool nothing = result.isNull() || (result.isObject() && result.empty());
    context.out().print(harmless(head) + context.out().paint(Terminal::GREEN, "ok") + "\n" +
                        (nothing ? "" : harmless(corvo::json::write_styled(result), true)));
}

/** Shows why a request failed. With --json an error reply has been printed already, but not with --result. */
void tell_failure(Context& context, const Failure& failure, const std::string& head, bool is_reply) {
    if (!context.json())
        context.out().print(harmless(head) + context.out().paint(Terminal::RED, "failed") + ": " +
                            harmless(failure.what()) + "\n");
    else if (!is_reply || context.options().result)
        context.complain(head + failure.what());
}

/** Returns false if the request itself failed. Throws NoDaemon, TimedOut. */
bool play(Context& context, const Json::Value& request, const std::string& title) {
    const std::string method = string_of(request["method"]);
    const std::string head = title + " " + method + ": ";
    bool done = false;
    try {
        ask(context, request, method, head);
        done = true;
    } catch (const ErrorReply& e) {
        tell_failure(context, e, head, true);
    } catch (const Usage& e) {
        tell_failure(context, e, head, false);  // parameters that no request can have
    }
    context.out().flush();
    return done;
}

void run_file(Context& context, const RunOptions& options) {
    const std::string text = read_text(options.file, MAX_CONFIG_BYTES);
    const check::JudgedBuild build = options.told.any() ? check::JudgedBuild::told(options.told)
                                                        : check::JudgedBuild::asked(context.daemon());
    check::Settings settings{.build = build.build};
    ask_settings(context.daemon(), settings);
    check::Report report(text);
    check::ConfigCheck config(text, settings, report);
    config.run();
    if (const std::string found = check::findings_text(shown_name(options.file), report, context.err());
        !found.empty())
        context.err().print("Judged for a " + harmless(build.text) + ".\n" + found);
    const size_t errors = report.count(check::ERROR);
    if (errors > 0 && (!options.force || config.requests().empty()))
        throw Failure(check::counts_text(errors, report.count(check::WARNING)) + ", nothing was sent" +
                      (config.requests().empty() ? "" : " (--force sends it all the same)"));
    size_t failed = 0;
    size_t number = 0;
    for (const Json::Value& request : config.requests()) {
        const std::string title =
            "[" + std::to_string(++number) + "/" + std::to_string(config.requests().size()) + "]";
        if (play(context, request, title)) continue;
        ++failed;
        if (!options.keep_going) break;
    }
    if (failed > 0)
        throw Failure(std::to_string(failed) + " of " + std::to_string(number) + " requests failed" +
                      (number < config.requests().size() ? ", the rest was not sent" : ""));
}

}  // namespace

void add_check(CLI::App& app, Context& context) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* word = app.add_subcommand("check", "Check start-up configurations for mistakes");
    word->footer(
        "Works without a daemon. If one answers, the check is for its build: in slave mode, where a host "
        "system owns the data path, it refuses more than a standalone one. Otherwise the check is for the "
        "daemon that this program was packaged with.");
    word->add_option("file", options->files, "Configuration files; - is standard input")
        ->type_name("FILE")
        ->required();
    word->add_flag("--strict", options->strict, "Treat warnings as errors");
    check::add_build_options(*word, options->told);
    word->callback([&context, options] { check_files(context, *options); });
}

void add_run(CLI::App& app, Context& context) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* word = app.add_subcommand("run", "Send a start-up configuration's requests one by one");
    word->add_option("file", options->file, "Configuration file; - is standard input")
        ->type_name("FILE")
        ->required();
    word->add_flag("-k,--keep-going", options->keep_going, "Go on after a request that failed");
    word->add_flag("-f,--force", options->force, "Send it even if the check finds errors");
    check::add_build_options(*word, options->told);
    word->callback([&context, options] { run_file(context, *options); });
}

}  // namespace brumectl
