#include "client/classify/classify.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <optional>

#include "client/classify/classifier.h"
#include "client/classify/progress.h"
#include "client/classify/report.h"
#include "client/classify/show.h"
#include "client/context.h"
#include "client/failure.h"
#include "client/text/flow_text.h"
#include "client/text/option_checks.h"
#include "client/text/temp_file.h"
#include "infra/json/corvo_json.h"
#include "utils/unique_file.h"

namespace brumectl {

namespace {

constexpr const char* FOOTER =
    "Reads pcap and pcapng files of Ethernet, raw IP, Linux cooked, loopback, PPP and Cisco HDLC links,\n"
    "also gzipped, and ERF files. The engine gets the packets in pieces, on a data path of their own,\n"
    "separate from live traffic and other captures. With --dpaddr or --no-reset, or if the engine has no\n"
    "such paths, it gets them on a shared path. Then flows can't be listed, and each packet counts as what\n"
    "its flow was classified as at that moment.\n"
    "\n"
    "If the daemon runs as another user, the pieces are passed in a temporary file in $TMPDIR (/tmp). Apart\n"
    "from the daemon's group, nobody can read it who couldn't read the capture; if that group can't be set,\n"
    "you are warned first.\n"
    "\n"
    "With --json, one document:\n"
    "  files         for each file: file; protocols to total, as below; pieces; padded: frames that were\n"
    "                filled up; evicted: flows dropped before their end; error, if any; with --flows and\n"
    "                --hosts: flows and hosts, as in the engine's flows.list and flows.hosts\n"
    "  protocols     {NAME: {packets, bytes, flows, guessed}}; unclassified and total: likewise\n"
    "  not_decoded   {packets, bytes, reasons: {NAME: packets}}\n"
    "  packets       with --packets: the classified packets of all files, as the daemon returned them";

/** Rows of a report: browsers can handle more, readers can't. */
constexpr size_t REPORTED_FLOWS = 100, REPORTED_HOSTS = 50;

struct Arguments {
    std::vector<std::string> files = {};
    bool packets = false;
    bool flows = false;
    bool hosts = false;
    bool no_guess = false;
    bool no_reset = false;
    std::string csv = {};
    std::string report = {};
    ClassifyOptions options = {};

    bool lists() const { return flows || hosts || !csv.empty(); }
};

/**
 * Holds parts of the JSON document until it is written: they may be long, and half a document must not
 * be printed.
 */
class Spool {
 public:
    void put(const std::string& text) {
        if (fwrite(text.data(), 1, text.size(), m_file.get()) != text.size())
            throw Failure("can't write a temporary file");
    }
    void copy_to(const Terminal& out) {
        if (fflush(m_file.get()) != 0) throw Failure("can't write a temporary file");
        rewind(m_file.get());
        std::string buf(65536, '\0');
        while (const size_t size = fread(buf.data(), 1, buf.size(), m_file.get()))
            out.print(buf.substr(0, size));
        if (ferror(m_file.get()) != 0) throw Failure("can't read a temporary file");
    }

 private:
    corvo::UniqueFile m_file = nameless_file();
};

/** A list in the JSON document, kept in a spool. */
class SpooledList {
 public:
    SpooledList(Spool& spool, bool indented) : m_spool(spool), m_indented(indented) {}
    void add(const Json::Value& value) {
        m_spool.put((m_empty ? "" : ",") + (m_indented
                                                ? "\n" + harmless(corvo::json::write_styled(value), true)
                                                : corvo::json::write(value)));
        m_empty = false;
    }

 private:
    Spool& m_spool;
    bool m_indented;
    bool m_empty = true;
};

class Run {
 public:
    Run(Context& context, const Arguments& arguments)
        : m_context(context),
          m_arguments(arguments),
          m_progress(context.err()),
          m_copies(context.daemon(), [this](const std::string& text) { tell(text); }) {
        if (context.json() && (arguments.flows || arguments.hosts)) m_files.emplace();
        if (context.json() && arguments.packets) {
            m_packets.emplace();
            m_packet_list.emplace(*m_packets, context.out().interactive());
        }
        if (!arguments.report.empty()) m_report = std::make_unique<PlacedFile>(arguments.report);
        if (!arguments.csv.empty()) m_csv = std::make_unique<PlacedFile>(arguments.csv);
    }

    void run() {
        m_options = options();
        if (m_csv) m_csv->write(flow_text::csv_head("file,", false));
        for (const std::string& file : m_arguments.files)
            m_results.push_back(run(file));
        if (m_context.json())
            print_document();
        else
            m_context.out().print(show::text(m_results, m_context.out()));
        if (m_csv) m_csv->place("");
        if (m_report) m_report->place(report::page(m_results));
        complain();
    }

 private:
    ClassifyOptions options() {
        ClassifyOptions options = m_arguments.options;
        options.reset = !m_arguments.no_reset;
        options.guess = !m_arguments.no_guess;
        const bool is_shared = m_arguments.no_reset || !options.dpaddr.empty();
        if (is_shared && m_arguments.lists())
            throw Usage(
                "flows are told of a path of the capture's own only: not with --dpaddr or --no-reset");
        options.flows = !is_shared && CapturePath::is_known(m_context.daemon());
        // The charts of a page are made from packets, as only those have times.
        options.packets = m_arguments.packets || m_report || !options.flows;
        if (!options.flows && !is_shared && (m_arguments.lists() || !m_context.json()))
            tell(
                "the engine that is loaded tells no flows: packets count under what was known of their flow "
                "when they came");
        return options;
    }

    FileResult run(const std::string& file) {
        m_progress.show(file, 0);
        m_is_first = true;
        m_listed = {};
        if (m_files) m_files->put(m_results.empty() ? "{" : ",{");
        Classifier classifier(
            m_context.daemon(), m_copies, m_options,
            {[&](double share) { m_progress.show(file, share); },
             [&](const Piece& piece, uint64_t start_usec) { show_piece(file, piece, start_usec); },
             [&](CapturePath& path) { list(file, path); }});
        FileResult result = classifier.run(file);
        result.flows = std::move(m_listed.flows);
        result.hosts = std::move(m_listed.hosts);
        if (m_files)
            m_files->put((m_in_list ? "]," : "") + corvo::json::write(show::document(result)).substr(1));
        m_in_list = false;
        m_progress.clear();
        return result;
    }

    void head(const std::string& file, const std::string& columns) {
        m_progress.clear();
        const Terminal& out = m_context.out();
        if (m_is_first && m_arguments.files.size() > 1)
            out.print(out.paint(Terminal::BOLD, harmless(file)) + "\n");
        m_is_first = false;
        out.print(columns);
    }

    void show_piece(const std::string& file, const Piece& piece, uint64_t start_usec) {
        if (!m_arguments.packets) return;
        if (m_packet_list) {
            for (const PieceFrame& frame : piece.frames())
                if (frame.answer) m_packet_list->add(*frame.answer);
            return;
        }
        if (m_is_first) head(file, show::packets_head(m_context.out()));
        m_context.out().print(show::packets_text(piece, start_usec));
    }

    void list(const std::string& file, CapturePath& path) {
        if (m_arguments.flows || m_csv || m_report) {
            const auto show = start_list("flows", file, m_arguments.flows, flow_text::head, flow_text::row);
            path.list_flows([&](const Json::Value& flow) {
                if (show) show(flow);
                if (m_csv) m_csv->write(flow_text::csv_row(flow_text::csv_cell(file) + ",", flow, false));
                if (m_report && m_listed.flows.size() < REPORTED_FLOWS) m_listed.flows.push_back(flow);
                // If only the page needs them, no more are required.
                return show || m_csv || m_listed.flows.size() < REPORTED_FLOWS;
            });
            end_list();
        }
        if (m_arguments.hosts || m_report) {
            const auto show =
                start_list("hosts", file, m_arguments.hosts, flow_text::host_head, flow_text::host_row);
            path.list_hosts([&](const Json::Value& host) {
                if (show) show(host);
                if (m_report && m_listed.hosts.size() < REPORTED_HOSTS) m_listed.hosts.push_back(host);
                return show || m_listed.hosts.size() < REPORTED_HOSTS;
            });
            end_list();
        }
    }

    /** Returns what shows a row; empty if the list isn't to be shown. */
    std::function<void(const Json::Value&)> start_list(const char* name, const std::string& file,
                                                       bool is_shown, std::string (*columns)(const Terminal&),
                                                       std::string (*row)(const Json::Value&)) {
        if (!is_shown) return {};
        if (m_files) {
            m_files->put(std::string("\"") + name + "\":[");
            m_in_list = true;
            auto rows = std::make_shared<SpooledList>(*m_files, m_context.out().interactive());
            return [rows](const Json::Value& value) { rows->add(value); };
        }
        head(file, columns(m_context.out()));
        return [this, row](const Json::Value& value) { m_context.out().print(row(value)); };
    }

    void end_list() {
        if (m_in_list) m_files->put("],");
        m_in_list = false;
    }

    void print_document() {
        Json::Value document = show::document(m_results);
        if (!m_files) {
            document["files"] = Json::Value(Json::arrayValue);
            for (const FileResult& result : m_results)
                document["files"].append(show::document(result));
        }
        if (!m_files && !m_packets) return m_context.print_json(document);
        const Terminal& out = m_context.out();
        const std::string text = out.interactive() ? harmless(corvo::json::write_styled(document), true)
                                                   : corvo::json::write(document);
        out.print(text.substr(0, text.rfind('}')));
        print_list("files", m_files);
        print_list("packets", m_packets);
        out.print("}\n");
    }

    void print_list(const char* name, std::optional<Spool>& list) {
        if (!list) return;
        m_context.out().print(std::string(",\"") + name + "\":[");
        list->copy_to(m_context.out());
        m_context.out().print("]");
    }

    void tell(const std::string& text) {
        m_progress.clear();
        m_context.complain(text);
    }

    /** With a single file, an error ends the program; with several, each error is reported. */
    void complain() {
        size_t faulty = 0;
        std::string last;
        for (const FileResult& result : m_results) {
            if (result.error.empty()) continue;
            ++faulty;
            last = result.file + ": " + result.error;
            if (m_results.size() > 1) m_context.complain(last);
        }
        if (faulty == 0) return;
        m_context.out().flush();
        if (m_results.size() == 1) throw Failure(last);
        throw Failure(std::to_string(faulty) + " of " + std::to_string(m_results.size()) +
                      " files not classified, or not to the end");
    }

    Context& m_context;
    const Arguments& m_arguments;
    Progress m_progress;
    Copies m_copies;
    ClassifyOptions m_options;
    std::optional<Spool> m_files = {};  ///< of the document, if they contain lists
    std::optional<Spool> m_packets = {};
    std::optional<SpooledList> m_packet_list = {};
    std::unique_ptr<PlacedFile> m_csv;
    std::unique_ptr<PlacedFile> m_report;
    std::vector<FileResult> m_results;
    // State of the current file:
    bool m_is_first = true;  ///< nothing of it has been shown yet
    bool m_in_list = false;  ///< in the document
    struct {
        std::vector<Json::Value> flows = {};
        std::vector<Json::Value> hosts = {};
    } m_listed;
};

}  // namespace

void add_classify(CLI::App& app, Context& context) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* word = app.add_subcommand("classify", "Show which protocols are in capture files");
    word->add_option("files", arguments->files, "Capture files, or - for standard input")
        ->type_name("FILE")
        ->required();
    word->add_flag("--flows", arguments->flows, "Also list the flows: endpoints, protocol, names");
    word->add_flag("--hosts", arguments->hosts, "Also list the addresses, most bytes first");
    word->add_flag("--packets", arguments->packets, "Also list the packets");
    word->add_flag("--no-guess", arguments->no_guess, "Don't count guesses by port or address as classified");
    word->add_option("--csv", arguments->csv, "Write the flows to this file as comma-separated values")
        ->type_name("FILE")
        ->check(not_empty());
    word->add_option("--report", arguments->report, "Write an HTML page with charts to this file")
        ->type_name("FILE")
        ->check(not_empty());
    word->add_option("--ns", arguments->options.ns_id, "Name space of the packets' flows")
        ->type_name("NUMBER")
        ->transform(number_between(0, UINT32_MAX))
        ->capture_default_str();
    word->add_option("--dpaddr", arguments->options.dpaddr, "Data path, passed to the engine")
        ->type_name("TEXT");
    word->add_option("--filter", arguments->options.filter, "Only packets that match this tcpdump filter")
        ->type_name("TEXT");
    word->add_flag("--no-reset", arguments->no_reset, "Keep the engine's flows from one file to the next");
    word->footer(FOOTER);
    word->callback([&context, arguments] { Run(context, *arguments).run(); });
}

}  // namespace brumectl
