#include "client/classify/classify.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "client/classify/classifier.h"
#include "client/classify/progress.h"
#include "client/classify/report.h"
#include "client/classify/show.h"
#include "client/context.h"
#include "client/failure.h"
#include "client/option_checks.h"
#include "client/temp_file.h"
#include "infra/corvo_json.h"
#include "utils/unique_file.h"

namespace brumectl {

namespace {

constexpr const char* FOOTER =
    "Reads pcap and pcapng of micro- and nanoseconds, of Ethernet, raw IP, Linux cooked and loopback links,\n"
    "packed by gzip or not, and ERF. What the daemon can't read itself goes to it as temporary files in\n"
    "$TMPDIR (/tmp), which are removed again; so do large captures, in pieces.\n"
    "\n"
    "With --json one document:\n"
    "  files         for each: file, protocols, total, unclassified, not_ip as below; pieces sent; padded,\n"
    "                unconverted, too_long: frames that were filled up or left out; strays; error, if any\n"
    "  protocols     {NAME: {packets, bytes}}; total, unclassified, not_ip: {packets, bytes}\n"
    "  answer        the daemon's own, unchanged, for a single file that went to it in one piece\n"
    "  packets       with --packets: the daemon's for all files that have a class, unchanged";

struct Arguments {
    std::vector<std::string> files = {};
    bool packets = false;
    bool no_reset = false;
    std::string report = {};
    ClassifyOptions options = {};
};

/** Packets of the JSON document until it is written: they may be many, and half a document is none. */
class PacketSpool {
 public:
    void add(const Piece& piece) {
        for (const PieceFrame& frame : piece.frames())
            if (frame.answer) put((m_empty ? "" : ",") + corvo::json::write(*frame.answer));
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
    void put(const std::string& text) {
        m_empty = false;
        if (fwrite(text.data(), 1, text.size(), m_file.get()) != text.size())
            throw Failure("can't write a temporary file");
    }
    corvo::UniqueFile m_file = nameless_file();
    bool m_empty = true;
};

class Run {
 public:
    Run(Context& context, const Arguments& arguments)
        : m_context(context), m_arguments(arguments), m_progress(context.err()) {
        if (context.json() && arguments.packets) m_spool = std::make_unique<PacketSpool>();
        if (!arguments.report.empty()) m_report = std::make_unique<PlacedFile>(arguments.report);
    }

    void run() {
        for (const std::string& file : m_arguments.files) {
            m_results.push_back(run(file));
            if (m_arguments.files.size() > 1) m_results.back().answer = Json::Value();
        }
        if (m_context.json())
            print_document();
        else
            m_context.out().print(show::text(m_results, m_context.out()));
        if (m_report) m_report->place(report::page(m_results));
        complain();
    }

 private:
    FileResult run(const std::string& file) {
        ClassifyOptions options = m_arguments.options;
        options.reset = !m_arguments.no_reset;
        m_progress.show(file, 0);
        bool is_first = true;
        Classifier classifier(m_context.daemon(), options,
                              {[&](double share) { m_progress.show(file, share); },
                               [&](const Piece& piece, uint64_t start_usec) {
                                   show_piece(file, piece, start_usec, is_first);
                                   is_first = false;
                               }});
        FileResult result = classifier.run(file);
        m_progress.clear();
        return result;
    }

    void show_piece(const std::string& file, const Piece& piece, uint64_t start_usec, bool is_first) {
        if (!m_arguments.packets) return;
        if (m_spool) {
            m_spool->add(piece);
            return;
        }
        m_progress.clear();
        const Terminal& out = m_context.out();
        if (is_first && m_arguments.files.size() > 1)
            out.print(out.paint(Terminal::BOLD, harmless(file)) + "\n");
        if (is_first) out.print(show::packets_head(out));
        out.print(show::packets_text(piece, start_usec));
    }

    void print_document() {
        const std::string text = corvo::json::write(show::document(m_results));
        if (!m_spool) {
            m_context.out().print(text + "\n");
            return;
        }
        m_context.out().print(text.substr(0, text.size() - 1) + ",\"packets\":[");
        m_spool->copy_to(m_context.out());
        m_context.out().print("]}\n");
    }

    /** A fault of the only file ends the program by itself; of several, each is told. */
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
    std::unique_ptr<PacketSpool> m_spool;
    std::unique_ptr<PlacedFile> m_report;
    std::vector<FileResult> m_results;
};

}  // namespace

void add_classify(CLI::App& app, Context& context) {
    auto arguments = std::make_shared<Arguments>();
    CLI::App* word = app.add_subcommand("classify", "Show which protocols are in capture files");
    word->add_option("files", arguments->files, "Capture files")->type_name("FILE")->required();
    word->add_flag("--packets", arguments->packets, "A row for each packet, too");
    word->add_option("--report", arguments->report, "Write a page with charts, HTML, to this file")
        ->type_name("FILE")
        ->check(not_empty());
    word->add_option("--ns", arguments->options.ns_id, "Name space of the packets' flows")
        ->type_name("NUMBER")
        ->check(number_between(0, UINT32_MAX))
        ->capture_default_str();
    word->add_option("--dpaddr", arguments->options.dpaddr, "Data path, handed to the engine")
        ->type_name("TEXT");
    word->add_option("--filter", arguments->options.filter, "Only packets that match, as for tcpdump")
        ->type_name("TEXT");
    word->add_flag("--no-reset", arguments->no_reset,
                   "The engine keeps the flows that it has before each file");
    word->footer(FOOTER);
    word->callback([&context, arguments] { Run(context, *arguments).run(); });
}

}  // namespace brumectl
