#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <memory>

#include "client/check/parameters.h"
#include "client/context.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/lifecycle/engine_swap.h"
#include "client/lifecycle/lifecycle.h"
#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "client/wire/build.h"
#include "client/wire/local_daemon.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

/** The daemon's defaults: `load` without a path, and its option --activate. */
constexpr const char* DEFAULT_PATH = "../lib";
constexpr unsigned DEFAULT_MAX_FLOWS = 16384;

struct ReloadOptions {
    std::string path = {};
    std::string back = {};
    Json::Value load = Json::objectValue;
    Json::Value activate = Json::objectValue;
};

/** Our options use the methods' own names for what the daemon doesn't show. */
void add_fields(CLI::App& word, const char* method, Json::Value& params) {
    for (const Field& field : fields_of(*MethodTable::get().find(method))) {
        if (field.path == "path") continue;
        const std::string leaf = field.leaf() == field.path ? "" : ",--" + field.leaf();
        const std::string names = "--" + field.path + leaf;
        if ((*field.schema)["type"] == "boolean") {
            word.add_flag_function(
                names, [&params, field](int64_t) { put(params, field.path, true); }, field.description);
            continue;
        }
        auto take = [&params, field](const std::string& text) {
            put(params, field.path, value_of(field, text));
        };
        word.add_option_function<std::string>(names, take, field.description)
            ->type_name(type_text(*field.schema));
    }
}

/** Finds parameters that the new engine can't be given before the working one is taken down. Throws Usage. */
void check_parameters(const char* name, Json::Value& params, const Build& build) {
    const Method& method = *MethodTable::get().find(name);
    complete(method, params);
    Json::Value request;
    request["params"] = params;
    const std::string text;
    check::Report report(text);
    check::check_parameters(method, request, build, report);
    for (const check::Finding& finding : report.findings())
        if (finding.severity == check::ERROR) throw Usage(finding.text);
}

/** A folder that exists here is meant as this one; the daemon has its own working directory. */
std::string path_for_daemon(const std::string& path, const Address& address) {
    std::error_code none;
    return on_this_machine(address) && std::filesystem::is_directory(path, none)
               ? std::filesystem::canonical(path, none).string()
               : path;
}

std::string step_text(const Request& step) {
    std::string text = step.method;
    for (const char* name : {"cmd", "component", "path", "intf"})
        if (const std::string word = string_of(member_of(step.params, name)); !word.empty())
            text += " " + word;
    return text;
}

class Reload {
 public:
    Reload(Context& context, const ReloadOptions& options)
        : m_context(context), m_options(options), m_daemon(context.daemon()) {}

    void run() {
        const Json::Value status = m_daemon.call("status");
        const LocalDaemon local(m_daemon.address(), static_cast<pid_t>(count_of(member_of(status, "pid"))));
        EngineSetup present = shown_setup(m_daemon, status);
        if (present.state == UNLOADED) throw Failure("no engine is loaded that could be swapped");
        EngineSetup wanted = present;
        fill(local, present, wanted);
        check(local, string_of(member_of(status, "mode")), present, wanted);
        finish(swap(present, wanted));
    }

 private:
    void fill(const LocalDaemon& local, EngineSetup& present, EngineSetup& wanted) const {
        const Address& address = m_daemon.address();
        std::string back = m_options.back.empty() ? local.engine_folder() : m_options.back;
        if (back.empty()) back = DEFAULT_PATH;
        const Json::Value shown = max_flows_of(present.activate);
        const Json::Value told = max_flows_of(m_options.activate);
        fill_one(present, path_for_daemon(back, address), shown.isNull() ? told : shown);
        fill_one(wanted, path_for_daemon(m_options.path.empty() ? back : m_options.path, address),
                 told.isNull() ? shown : told);
    }

    static Json::Value max_flows_of(const Json::Value& activate) {
        return member_of(activate, {"resources", "max_flows"});
    }

    void fill_one(EngineSetup& setup, const std::string& path, const Json::Value& max_flows) const {
        setup.load = m_options.load;
        setup.load["path"] = path;
        setup.activate = m_options.activate;
        setup.activate["resources"]["max_flows"] =
            max_flows.isNull() ? Json::Value(DEFAULT_MAX_FLOWS) : max_flows;
    }

    /** Throws Failure if the swap couldn't end well; nothing has been changed by then. */
    void check(const LocalDaemon& local, const std::string& mode, EngineSetup& present, EngineSetup& wanted) {
        const Build build = build_of(m_daemon).value_or(packaged_build());
        if (build.slave_mode && !present.interfaces.empty())
            throw Failure("a daemon in slave mode can't attach " + present.interfaces.front() +
                          " again: restart it to swap its engine");
        for (EngineSetup* setup : {&present, &wanted}) {
            check_parameters("load", setup->load, build);
            check_parameters("activate", setup->activate, build);
        }
        const std::string path = wanted.load["path"].asString();
        const std::string library = mode == "kernel" ? "libcvcp_k.so" : "libcvcp_u.so";
        std::error_code none;
        if (local.reaches(path) && !std::filesystem::exists(local.path_of(path) + "/" + library, none) &&
            !none)
            throw Failure("there is no " + library + " in " + path);
    }

    EngineSwap::outcome_e swap(const EngineSetup& present, const EngineSetup& wanted) {
        // Once started, it ends with an engine, even if the user interrupts or nobody reads our output.
        const interrupt::Deferred until_done;
        EngineSwap swap(m_daemon,
                        [this](const Request& step, const std::string& error) { tell(step, error); });
        try {
            return swap.run(present, wanted);
        } catch (const Failure& e) {
            if (m_context.json()) print_json("unknown", "");
            throw Failure(std::string(e.what()) + "; 'wait' and 'evidence' tell what became of it",
                          e.status());
        }
    }

    void tell(const Request& step, const std::string& error) {
        Json::Value& told = m_steps.append(Json::objectValue);
        told["method"] = step.method;
        if (!step.params.isNull()) told["params"] = step.params;
        if (!error.empty()) told["error"] = error;
        if (m_context.json()) return;
        const Terminal& out = m_context.out();
        print(harmless(step_text(step)) + ": " +
              (error.empty() ? out.paint(Terminal::GREEN, "ok")
                             : out.paint(Terminal::RED, "failed") + ": " + harmless(error)) +
              "\n");
    }

    void print(const std::string& text) {
        try {
            m_context.out().print(text);
            m_context.out().flush();
        } catch (...) {
            m_unsaid = std::current_exception();
        }
    }

    void print_json(const std::string& engine, const std::string& state) const {
        Json::Value json;
        json["engine"] = engine;
        json["state"] = state;
        json["steps"] = m_steps;
        m_context.out().print(corvo::json::write_line(json));
    }

    void finish(EngineSwap::outcome_e outcome) {
        constexpr const char* WORDS[] = {"the new engine runs", "the swap failed, the old engine runs",
                                         "the swap failed, and the old engine isn't back as it was"};
        constexpr const char* ENGINES[] = {"new", "old", "neither"};
        const std::string state = state_reached();
        const std::string text = std::string(WORDS[outcome]) + ": " + state;
        if (m_unsaid) std::rethrow_exception(m_unsaid);
        if (m_context.json()) print_json(ENGINES[outcome], state);
        if (outcome != EngineSwap::SWAPPED) throw Failure(text);
        if (!m_context.json()) m_context.out().print(harmless(text) + "\n");
        interrupt::check();  // one that arrived during the swap is obeyed after its outcome has been reported
    }

    std::string state_reached() {
        const interrupt::Deferred until_told;
        return string_of(member_of(m_daemon.call("status"), "state"));
    }

    Context& m_context;
    const ReloadOptions& m_options;
    Daemon& m_daemon;
    Json::Value m_steps = Json::arrayValue;
    std::exception_ptr m_unsaid;  ///< why something couldn't be printed
};

}  // namespace

void add_reload(CLI::App& app, Context& context) {
    auto options = std::make_shared<ReloadOptions>();
    CLI::App* word =
        app.add_subcommand("reload", "Replace the engine; restore the old one if the new one fails");
    word->footer(
        "Deactivates, unloads, loads, activates and attaches again, with the same interfaces, flow table "
        "size, collectors, exporter and health configuration, as far as the daemon shows them. Flows are "
        "lost. Use options for what it doesn't show; they also apply to the old engine if it is restored.");
    word->add_option("path", options->path, "Folder of the new engine (default: the present one's)")
        ->type_name("PATH");
    word->add_option("--back", options->back,
                     "Folder of the present engine (default: as seen in /proc by root, else ../lib)")
        ->type_name("PATH");
    add_fields(*word, "load", options->load);
    add_fields(*word, "activate", options->activate);
    word->callback([&context, options] { Reload(context, *options).run(); });
}

}  // namespace brumectl
