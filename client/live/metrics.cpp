#include "client/live/metrics.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/context.h"
#include "client/failure.h"
#include "client/live/http_server.h"
#include "client/live/metrics_text.h"
#include "client/text/option_checks.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

/** Half of a scraper's default timeout. */
constexpr int MAX_BUDGET_MS = 5000;
/** Scrapers that wait at the same time share a page, so a slow daemon costs its time only once. */
constexpr uint64_t SHARED_MS = 500;

std::string ask(Context& context, Daemon& daemon) {
    return metrics_text(LiveSample::take(daemon, std::min(context.timeout_ms(), MAX_BUDGET_MS)));
}

void print_once(Context& context) {
    std::string text;
    try {
        text = ask(context, context.daemon());
    } catch (const Failure& e) {
        context.out().print(metrics_text_down(e.what()));
        throw;
    }
    context.out().print(text);
}

class Exporter {
 public:
    explicit Exporter(Context& context) : m_context(context) {}

    HttpServer::Page page() {
        if (m_body.empty() || corvo::monotonic_ms() >= m_made_ms + SHARED_MS) {
            m_body = scrape();
            m_made_ms = corvo::monotonic_ms();
        }
        return {"text/plain; version=0.0.4; charset=utf-8", m_body};
    }

 private:
    /** Connects anew each time, as the daemon may be a different one. */
    std::string scrape() {
        try {
            std::string text = ask(m_context, *m_context.new_daemon());
            m_down = false;
            return text;
        } catch (const Failure& e) {
            if (!m_down) m_context.complain(e.what());
            m_down = true;
            return metrics_text_down(e.what());
        }
    }

    Context& m_context;
    std::string m_body;
    uint64_t m_made_ms = 0;
    bool m_down = false;  ///< and it has been reported
};

[[noreturn]] void serve(Context& context, const std::string& where) {
    const Address address = Address::parse_listening(where);
    context.new_daemon();  // checks its address now, not at the first scrape
    Exporter exporter(context);
    HttpServer server(address, {{"/metrics", [&exporter] { return exporter.page(); }}});
    context.complain("serving http://" + std::string(where.front() == ':' ? "0.0.0.0" : "") + where +
                     "/metrics");
    server.run();
}

}  // namespace

void add_metrics(CLI::App& app, Context& context) {
    auto where = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("metrics", "Print the daemon's metrics in Prometheus' text format");
    word->add_option(
            "--listen", *where,
            "Serve them at http://IP:PORT/metrics until interrupted; :PORT listens on all interfaces")
        ->type_name("ADDRESS")
        ->check(not_empty());
    word->footer(
        "A scrape takes at most --timeout, and never more than 5 seconds. If the daemon hasn't answered by "
        "then, brumecpd_up is 0 and a comment says why.");
    word->callback([&context, where] {
        if (where->empty()) return print_once(context);
        serve(context, *where);
    });
}

}  // namespace brumectl
