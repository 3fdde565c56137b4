#include "client/flows/flows.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/context.h"
#include "client/failure.h"
#include "client/flows/flow_lines.h"
#include "client/flows/flow_query.h"
#include "client/flows/flow_watch.h"
#include "client/flows/ipfix_run.h"
#include "client/flows/selection.h"
#include "client/text/option_checks.h"
#include "client/wire/flow_lists.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

using flows::FlowLines;
using flows::FlowQuery;
using flows::Moment;

constexpr const char* FOOTER =
    "Lists the flows of live traffic (data path \"dp0\"); the engine must have the method flows.list. For a\n"
    "capture's flows, see classify. Ages are by this machine's clock. --host takes an address, a network\n"
    "such as 10.0.0.0/8, or a name that clients asked for: example.org also matches www.example.org.\n"
    "--protocol takes a full name, such as TLS.Google, a part of one, or unclassified.\n"
    "\n"
    "With -f, each list follows the one before. + marks a flow that is new in it, - one that has ended or\n"
    "no longer matches or, with -n, is no longer among those shown.\n"
    "\n"
    "With --json, each flow is a line, as in flows.list. With -f, it also has\n"
    "  at            when it was listed, seconds since 1970\n"
    "  change        new, stays, or ended; an ended flow has the numbers of the list before\n"
    "With --csv likewise, after a line with the names of the columns.\n"
    "\n"
    "With --ipfix, a flow that has ended, and each minute one that goes on, becomes an IPFIX record of what\n"
    "was added since its last one: both directions, the application's number and name (RFC 6759), HTTP host\n"
    "and TLS server name. Traffic before the start isn't included. While the collector is away, up to\n"
    "100,000 records are kept. --delay must be shorter than the time that the engine keeps an ended flow.";

struct FlowsOptions {
    FlowQuery query = {};
    std::string sort = flows::orders().front().name;
    std::string host = {};
    uint64_t count = UINT64_MAX;
    bool no_guess = false;
    bool csv = false;
    bool follow = false;
    double delay_sec = 1;
    std::string ipfix = {};  ///< the collector; empty: none
    std::string over = "udp";
    bool for_nfdump = false;
};

/** The query, with what takes more than one option's check. */
FlowQuery query_of(const Context& context, const FlowsOptions& options) {
    FlowQuery query = options.query;
    for (const flows::Order& order : flows::orders())
        if (options.sort == order.name) query.order = &order;
    if (!options.host.empty()) query.host = flows::HostFilter::parse(options.host);
    query.guess = !options.no_guess;
    if (options.csv && context.json())
        throw Usage("'--csv' and '--json' are two forms of one list: choose one");
    const bool is_listed = options.csv || options.follow || context.json() || options.count != UINT64_MAX;
    if (!options.ipfix.empty() && is_listed)
        throw Usage("'--ipfix' lists nothing: not with '-f', '-n', '--csv' or '--json'");
    if (query.min_bytes > query.max_bytes)
        throw Usage("'--min-bytes' is above '--max-bytes': no flow has both");
    if (query.min_age_sec && query.max_age_sec && *query.min_age_sec > *query.max_age_sec)
        throw Usage("'--min-age' is above '--max-age': no flow has both");
    return query;
}

/** Throws Failure if the engine can't list flows now. */
void check_engine(Daemon& daemon) {
    const flow_lists::Ask ask = flow_lists::asker(daemon);
    const std::string obstacle = flow_lists::obstacle(ask, ask("status", Json::Value()), flow_lists::FLOWS);
    if (!obstacle.empty()) throw Failure(obstacle);
}

/** One list. What the engine has sorted is printed as it comes. */
class Listing {
 public:
    Listing(Context& context, const FlowQuery& query, const FlowsOptions& options)
        : m_context(context), m_query(query), m_count(options.count), m_lines(context, options.csv, false) {}

    void run() {
        check_engine(m_context.daemon());
        flows::Selection<std::string> selection(m_query, m_count);
        uint64_t streamed = 0;
        flow_lists::read(flow_lists::asker(m_context.daemon()), flow_lists::FLOWS, params(),
                         [&](const Json::Value& flow) {
                             if (!m_query.matches(flow, m_moment.now_sec)) return true;
                             const std::string body = m_lines.body(flow, m_moment.now_sec);
                             if (!m_query.is_sorted_by_engine()) return selection.add(flow, body), true;
                             print(body);
                             return ++streamed < m_count;
                         });
        for (const std::string& body : selection.take())
            print(body);
        if (m_is_empty && m_lines.kind() == FlowLines::TEXT) return m_context.out().print("No flows.\n");
        if (m_is_empty) m_context.out().print(m_lines.head());
    }

 private:
    /** No page is larger than what is wanted. */
    Json::Value params() const {
        Json::Value params = m_query.params();
        if (m_query.is_sorted_by_engine())
            params["limit"] = static_cast<unsigned>(std::min<uint64_t>(m_count, flow_lists::PAGE));
        return params;
    }
    void print(const std::string& body) {
        if (m_is_empty) m_context.out().print(m_lines.head());
        m_is_empty = false;
        m_context.out().print(m_lines.line(body, flows::STAYS, m_moment.now_sec));
    }

    Context& m_context;
    const FlowQuery& m_query;
    const uint64_t m_count;
    const FlowLines m_lines;
    const Moment m_moment = Moment::now();
    bool m_is_empty = true;
};

/** Look after look, until interrupted. A daemon that goes is waited for. */
class Follower {
 public:
    Follower(Context& context, const FlowQuery& query, const FlowsOptions& options)
        : m_context(context),
          m_delay_ms(static_cast<uint64_t>(options.delay_sec * 1000)),
          m_lines(context, options.csv, true),
          m_watch(query, m_lines, options.count) {}

    [[noreturn]] void run() {
        for (;;) {
            const uint64_t next = corvo::monotonic_ms() + m_delay_ms;
            look();
            m_context.out().flush();
            for (uint64_t now = corvo::monotonic_ms(); now < next; now = corvo::monotonic_ms())
                m_context.out().wait(static_cast<int>(next - now));
        }
    }

 private:
    void look() {
        const Moment moment = Moment::now();
        try {
            if (!m_daemon) m_daemon = m_context.new_daemon();
            check_engine(*m_daemon);
            show(m_watch.look(flow_lists::asker(*m_daemon), moment), moment);
            if (m_is_waiting) m_context.complain("the flows are told again");
            m_is_waiting = false;
        } catch (const Failure& e) {
            if (m_is_first) throw;
            if (!m_is_waiting) m_context.complain(e.what() + std::string("; waiting"));
            m_is_waiting = true;
            m_daemon.reset();
        }
    }

    void show(const flows::Look& look, const Moment& moment) {
        const Terminal& out = m_context.out();
        const bool is_text = m_lines.kind() == FlowLines::TEXT;
        if (is_text)
            out.print((m_is_first ? "" : "\n") + time_text(static_cast<int64_t>(moment.now_sec)) + "   " +
                      counted(look.flows, "flow", "flows") + ", " + count_text(look.added) + " new, " +
                      count_text(look.ended) + " ended\n");
        if (is_text ? !look.shown.empty() : m_is_first) out.print(m_lines.head());
        for (const flows::Shown& shown : look.shown)
            out.print(m_lines.line(shown.body, shown.change, moment.now_sec));
        m_is_first = false;
    }

    Context& m_context;
    const uint64_t m_delay_ms;
    const FlowLines m_lines;
    flows::FlowWatch m_watch;
    std::unique_ptr<Daemon> m_daemon;
    bool m_is_waiting = false;  ///< the last look failed, and that has been told
    bool m_is_first = true;
};

void add_filters(CLI::App& word, FlowsOptions& options) {
    FlowQuery& query = options.query;
    word.add_option("--protocol", query.protocol, "Only flows of this protocol")
        ->type_name("NAME")
        ->check(not_empty());
    word.add_option("--host", options.host, "Only flows with this host at either end")
        ->type_name("HOST")
        ->check(not_empty());
    word.add_option("--port", query.port, "Only flows with this port at either end")
        ->type_name("NUMBER")
        ->transform(number_between(0, UINT16_MAX));
    word.add_option("--ns", query.ns_id, "Only flows in this name space")
        ->type_name("NUMBER")
        ->transform(number_between(0, UINT32_MAX));
    word.add_option("--min-bytes", query.min_bytes, "Only flows of at least this size")
        ->type_name("SIZE")
        ->transform(size_in_bytes());
    word.add_option("--max-bytes", query.max_bytes, "Only flows of at most this size")
        ->type_name("SIZE")
        ->transform(size_in_bytes());
    for (const auto& [name, value, text] :
         {std::tuple{"--min-age", &query.min_age_sec, "Only flows that began at least this long ago"},
          std::tuple{"--max-age", &query.max_age_sec, "Only flows that began at most this long ago"}})
        word.add_option(name, *value, text)->type_name("SECONDS")->check(seconds_between(0, 1e9));
    word.add_flag("--no-guess", options.no_guess, "Don't count guesses by port or address as classified");
}

}  // namespace

void add_flows(CLI::App& app, Context& context) {
    auto options = std::make_shared<FlowsOptions>();
    CLI::App* word = app.add_subcommand("flows", "List the flows of live traffic");
    std::vector<std::string> names;
    for (const flows::Order& order : flows::orders())
        names.emplace_back(order.name);
    restrict_to(*word->add_option("--sort", options->sort, "What to sort by; numbers in descending order")
                     ->capture_default_str(),
                names);
    word->add_flag("-r,--reverse", options->query.reverse, "Reverse the order");
    word->add_option("-n,--count", options->count, "Show at most this many flows (default: all)")
        ->type_name("NUMBER")
        ->transform(number_between(1, UINT32_MAX));
    add_filters(*word, *options);
    word->add_flag("-f,--follow", options->follow, "Keep listing, marking new and ended flows");
    word->add_option("-d,--delay", options->delay_sec, "With -f or --ipfix: seconds between updates")
        ->type_name("SECONDS")
        ->check(seconds_between(0.1, 3600))
        ->capture_default_str();
    word->add_flag("--csv", options->csv, "Print comma-separated values");
    word->add_option("--ipfix", options->ipfix,
                     "Send records of the flows to this collector, until interrupted")
        ->type_name("HOST:PORT")
        ->check(not_empty());
    restrict_to(*word->add_option("--over", options->over, "With --ipfix: transport")->capture_default_str(),
                {"udp", "tcp"});
    word->add_flag("--for-nfdump", options->for_nfdump,
                   "With --ipfix: send application names in the form that nfdump up to 1.7.1 reads");
    word->footer(FOOTER);
    word->callback([&context, options] {
        const FlowQuery query = query_of(context, *options);
        if (!options->ipfix.empty())
            flows::IpfixRun(context, query, flows::Collector::parse(options->ipfix, options->over == "tcp"),
                            options->delay_sec, options->for_nfdump)
                .run();
        if (options->follow) Follower(context, query, *options).run();
        Listing(context, query, *options).run();
    });
}

}  // namespace brumectl
