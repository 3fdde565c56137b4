#include "client/evidence/evidence.h"

#include <CLI/CLI.hpp>
#include <filesystem>

#include "client/context.h"
#include "client/evidence/evidence_dir.h"
#include "client/evidence/report_text.h"
#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/text/option_checks.h"
#include "client/wire/local_daemon.h"

namespace brumectl {

namespace {

constexpr const char* USUAL_PLACES[] = {"./cvevents", "/var/log/brumecpd/cvevents"};

/** The folder next to the daemon's log; empty if there is no daemon that can be queried and inspected. */
std::string place_of_daemon(Context& context) {
    try {
        Json::Value status = context.daemon().call("status");
        const std::string log = string_of(member_of(status, "logfile"));
        LocalDaemon local(context.daemon().address(), static_cast<pid_t>(count_of(member_of(status, "pid"))));
        if (!local.reaches(log)) return {};
        const std::string path = local.path_of(log);
        return path.substr(0, path.rfind('/') + 1) + "cvevents";
    } catch (const Usage&) {
        throw;
    } catch (const Failure&) {
        return {};  // including one that hangs or talks nonsense: that is when evidence is needed most
    }
}

EvidenceDir open_dir(Context& context, const std::string& wanted) {
    if (!wanted.empty()) return EvidenceDir(wanted);
    std::error_code error;
    if (std::string place = place_of_daemon(context); !place.empty()) return EvidenceDir(place);
    for (const char* usual : USUAL_PLACES)
        if (std::filesystem::is_directory(usual, error) || error == std::errc::permission_denied)
            return EvidenceDir(usual);
    throw Failure("no events directory found; name it with --dir");
}

std::string when(const Evidence& evidence) {
    if (evidence.report.time > 0 && evidence.report.time < 253402300800)
        return time_text(static_cast<int64_t>(evidence.report.time));
    if (!is_stamp(evidence.name)) return "-";
    std::string text = evidence.name;
    text[4] = text[7] = '-';
    text[10] = ' ';
    text[13] = text[16] = ':';
    return text;
}

Terminal::colour_e colour_of(EvidenceReport::cause_e cause) {
    constexpr Terminal::colour_e COLOURS[] = {Terminal::RED, Terminal::RED, Terminal::YELLOW, Terminal::PLAIN,
                                              Terminal::YELLOW};
    return COLOURS[cause];
}

Json::Value summary(const Evidence& evidence) {
    Json::Value out;
    out["name"] = evidence.name;
    out["time"] = when(evidence);
    out["cause"] = cause_text(evidence.report.cause);
    out["signal"] = evidence.report.signal;
    out["version"] = evidence.report.version;
    out["bytes"] = Json::UInt64(evidence.bytes());
    return out;
}

void list(Context& context, const std::string& wanted) {
    const EvidenceDir dir = open_dir(context, wanted);
    const std::vector<Evidence> found = dir.list();
    const Terminal& out = context.out();
    if (context.json()) {
        Json::Value json(Json::arrayValue);
        for (const Evidence& evidence : found)
            json.append(summary(evidence));
        context.print_json(json);
        return;
    }
    TextTable table({"NAME", "TIME", "CAUSE", "SIGNAL", "SIZE", "VERSION"});
    for (const Evidence& evidence : found)
        table.add({{evidence.name},
                   {when(evidence)},
                   {cause_text(evidence.report.cause), false, colour_of(evidence.report.cause)},
                   {or_dash(harmless(evidence.report.signal))},
                   {bytes_text(evidence.bytes()), true},
                   {or_dash(harmless(plain(evidence.report.version)))}});
    out.print(table.empty() ? "Nothing in " + shell_word(dir.path()) + ".\n" : table.text(out));
}

void show(Context& context, const std::string& wanted, std::string name) {
    const EvidenceDir dir = open_dir(context, wanted);
    if (name.empty()) {
        const std::vector<std::string> stamps = dir.stamps();
        name = stamps.empty() ? EvidenceDir::LAST_STOP : stamps.back();
    }
    const Evidence evidence = dir.find(name);
    const std::string path = dir.path() + "/" + name;
    const Terminal& out = context.out();
    if (context.json()) {
        if (evidence.report.json.isNull()) throw Failure("in " + shell_word(path) + " " + evidence.fault);
        context.print_json(evidence.report.json);
        return;
    }
    out.print(out.paint(Terminal::BOLD, shell_word(path)) + "\n");
    out.print(field_text(out, "time", when(evidence)));
    out.print(field_text(out, "cause", cause_text(evidence.report.cause)));
    out.print(field_text(out, "report", evidence.fault));
    if (!evidence.report.json.isNull()) out.print(report_text(out, evidence.report));
    for (const EvidenceFile& file : evidence.files)
        out.print(field_text(out, &file == &evidence.files.front() ? "files" : "",
                             shell_word(file.name) + "  " + bytes_text(file.bytes)));
    const std::string stack = stack_text(out, evidence.report);
    if (!stack.empty()) out.print("\n" + stack);
}

struct Limits {
    size_t keep = SIZE_MAX;
    uint64_t bytes = UINT64_MAX;
};

/**
 * Oldest first. A size limit spares the latest, which is the most important and may still be being written.
 */
std::vector<std::string> beyond(const Limits& limits, const EvidenceDir& dir) {
    std::vector<std::string> stamps = dir.stamps();
    uint64_t bytes = 0;
    size_t stay = 0;
    while (stay < std::min(limits.keep, stamps.size())) {
        bytes += dir.bytes_of(stamps[stamps.size() - 1 - stay]);
        if (bytes > limits.bytes && stay > 0) break;
        ++stay;
    }
    stamps.resize(stamps.size() - stay);
    return stamps;
}

void prune(Context& context, const std::string& wanted, const Limits& limits) {
    const EvidenceDir dir = open_dir(context, wanted);
    Json::Value removed(Json::arrayValue);
    bool all = true;
    for (const std::string& stamp : beyond(limits, dir)) {
        try {
            dir.remove(stamp);
            removed.append(stamp);
        } catch (const Failure& e) {
            context.complain(std::string(e.what()) + ": left alone");
            all = false;
        }
    }
    const Terminal& out = context.out();
    if (context.json()) {
        Json::Value json;
        json["removed"] = removed;
        context.print_json(json);
    } else {
        for (const Json::Value& stamp : removed)
            out.print("removed  " + stamp.asString() + "\n");
        out.print(std::to_string(removed.size()) + " removed from " + shell_word(dir.path()) + "\n");
    }
    if (!all) throw Failure("not everything could be removed");
}

}  // namespace

std::vector<Evidence> find_evidence(Context& context, const std::string& dir) {
    return open_dir(context, dir).list();
}

void add_evidence(CLI::App& app, Context& context) {
    struct Wanted {
        std::string dir;
        std::string name;
        Limits limits;
    };
    auto wanted = std::make_shared<Wanted>();
    CLI::App* word = app.add_subcommand("evidence", "Show what crashes and stalls of the daemon left behind");
    word->require_subcommand(1);
    auto add = [&](const char* name, const char* text) {
        CLI::App* sub = word->add_subcommand(name, text);
        sub->add_option("--dir", wanted->dir,
                        "Events directory (default: the daemon's, ./cvevents or /var/log/brumecpd/cvevents)")
            ->type_name("DIR")
            ->check(not_empty());
        return sub;
    };
    add("ls", "List the reports")->callback([&context, wanted] { list(context, wanted->dir); });
    CLI::App* show_word = add("show", "Show a report with its stack");
    show_word->add_option("name", wanted->name, "Its name in `ls` (default: the latest)")->type_name("NAME");
    show_word->callback([&context, wanted] { show(context, wanted->dir, wanted->name); });
    CLI::App* prune_word = add("prune", "Remove the oldest reports");
    CLI::Option* keep =
        prune_word->add_option("--keep", wanted->limits.keep, "Keep at most this many, the latest ones")
            ->type_name("NUMBER")
            ->transform(number_between(0, UINT32_MAX));
    CLI::Option* max_size =
        prune_word
            ->add_option("--max-size", wanted->limits.bytes,
                         "Keep at most this many bytes, such as 500M or 2G; the latest is always kept")
            ->type_name("SIZE")
            ->transform(size_in_bytes());
    prune_word->callback([&context, wanted, keep, max_size] {
        if (keep->empty() && max_size->empty()) throw Usage("'--keep' or '--max-size' is missing");
        prune(context, wanted->dir, wanted->limits);
    });
}

}  // namespace brumectl
