#include "client/live/events.h"

#include <CLI/CLI.hpp>

#include "client/context.h"
#include "client/live/event_follower.h"
#include "client/live/stale_subscribers.h"
#include "client/text/json_access.h"
#include "client/text/option_checks.h"

namespace brumectl {

namespace {

void show_log(Context& context, const std::string& severity) {
    Json::Value params;
    params["cmd"] = "log";
    params["sev"] = severity;
    if (context.json()) {
        context.ask_and_print_reply("notifications", params);
        return;
    }
    TextTable table({"ID", "TIME", "SEVERITY", "FEATURE", "NAME", "TEXT"});
    for (const Json::Value& json : logged_events(context.daemon(), severity))
        if (std::optional<Notification> event = Notification::read(json))
            table.add({{std::to_string(event->id), true},
                       {time_text(event->ts)},
                       {harmless(event->severity), false, severity_colour(event->severity)},
                       {harmless(event->feature)},
                       {harmless(event->name)},
                       {harmless(event->text)}});
    context.out().print(table.empty() ? "No events.\n" : table.text(context.out()));
}

Json::Value array(const std::vector<std::string>& names) {
    Json::Value out(Json::arrayValue);
    for (const std::string& name : names)
        out.append(name);
    return out;
}

void clean_up(Context& context) {
    const CleanUp done = remove_stale_subscribers(context.daemon());
    const Terminal& out = context.out();
    if (context.json()) {
        Json::Value json;
        json["removed"] = array(done.removed);
        json["kept"] = array(done.kept);
        json["unknown"] = array(done.unknown);
        context.print_json(json);
        return;
    }
    for (const std::string& name : done.removed)
        out.print("removed  " + harmless(name) + "\n");
    for (const std::string& name : done.unknown)
        out.print("left     " + harmless(name) + " (can't be looked at from here)\n");
    out.print(std::to_string(done.removed.size()) + " removed, " +
              std::to_string(done.kept.size() + done.unknown.size()) + " left\n");
}

}  // namespace

void add_live_events(CLI::App& app, Context& context) {
    struct Wanted {
        FollowOptions options;
        bool follow = false;
    };
    auto wanted = std::make_shared<Wanted>();
    CLI::App* word = app.add_subcommand("events", "Show the daemon's notifications");
    word->add_flag("-f,--follow", wanted->follow, "Show new ones as they arrive");
    restrict_to(
        *word->add_option("--sev", wanted->options.severity, "Lowest severity shown")->capture_default_str(),
        {"info", "warn", "error"});
    word->add_option(
            "--path", wanted->options.path,
            "With -f: path of the socket that receives them (default: in $XDG_RUNTIME_DIR, beside the "
            "daemon's socket or in $TMPDIR)")
        ->type_name("PATH")
        ->check(not_empty());
    CLI::App* gc = word->add_subcommand("gc", "Remove subscriptions of programs that have ended");
    gc->callback([&context] { clean_up(context); });
    word->callback([&context, word, wanted] {
        if (!word->get_subcommands().empty()) return;
        if (wanted->follow) EventFollower(context, wanted->options).run();
        show_log(context, wanted->options.severity);
    });
}

}  // namespace brumectl
