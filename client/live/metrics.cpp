#include "client/live/metrics.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/context.h"
#include "client/failure.h"
#include "client/live/http_server.h"
#include "client/live/metrics_text.h"
#include "client/live/output.h"

namespace brumectl {

namespace {

/** Half of what a scraper waits by default. */
constexpr int MAX_BUDGET_MS = 5000;

std::string ask(Context& context, Daemon& daemon) {
    return metrics_text(LiveSample::take(daemon, std::min(context.timeout_ms(), MAX_BUDGET_MS)));
}

void print_once(Context& context) {
    std::string text;
    try {
        text = ask(context, context.daemon());
    } catch (const Failure&) {
        context.out().print(metrics_text_down());
        throw;
    }
    context.out().print(text);
    flush_or_fail(context.out());
}

/** For each scrape a new connection: the daemon may be another one by now. */
HttpServer::Page scrape(Context& context) {
    HttpServer::Page page{"text/plain; version=0.0.4; charset=utf-8", {}};
    try {
        page.body = ask(context, *context.new_daemon());
    } catch (const Failure&) {
        page.body = metrics_text_down();
    }
    return page;
}

[[noreturn]] void serve(Context& context, const std::string& where) {
    Address address = Address::parse(where);
    if (!address.tcp) throw Usage("--listen takes IP:PORT, not '" + where + "'");
    HttpServer server(address, {{"/metrics", [&context] { return scrape(context); }}});
    context.complain("serving http://" + where + "/metrics");
    server.run();
}

}  // namespace

void add_metrics(CLI::App& app, Context& context) {
    auto where = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("metrics", "The daemon's numbers in the text format of Prometheus");
    word->add_option("--listen", *where, "Serve them at http://IP:PORT/metrics instead, until interrupted");
    word->callback([&context, where] {
        if (where->empty()) return print_once(context);
        serve(context, *where);
    });
}

}  // namespace brumectl
