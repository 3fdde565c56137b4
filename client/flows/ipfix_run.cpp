#include "client/flows/ipfix_run.h"

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/json_access.h"
#include "utils/clock.h"

namespace brumectl::flows {

namespace {

/** Who gives applications their numbers, as registered for RFC 6759. */
constexpr uint8_t USER_DEFINED = 6, NDPI = 22;

}  // namespace

IpfixRun::IpfixRun(Context& context, const FlowQuery& query, const Collector& collector, double delay_sec,
                   bool for_nfdump)
    : m_context(context),
      m_delay_ms(static_cast<uint64_t>(delay_sec * 1000)),
      m_records(query),
      m_exporter(collector, context.timeout_ms()),
      m_style{.for_nfdump = for_nfdump} {
    if (!has_ipfix()) throw Failure("this brumectl was built without libfixbuf, which makes IPFIX");
}

void IpfixRun::run() {
    try {
        for (;;) {
            const uint64_t next = corvo::monotonic_ms() + m_delay_ms;
            look();
            std::vector<pollfd> nothing;
            for (uint64_t now = corvo::monotonic_ms(); now < next; now = corvo::monotonic_ms())
                interrupt::wait(nothing, static_cast<int>(next - now));
        }
    } catch (const Interrupted&) {
        send_rest();
        throw;
    }
}

void IpfixRun::look() {
    std::vector<FlowRecord> records;
    try {
        if (!m_daemon) m_daemon = m_context.new_daemon();
        const flow_lists::Ask ask = flow_lists::asker(*m_daemon);
        const Json::Value status = ask("status", Json::Value());
        const std::string obstacle = flow_lists::obstacle(ask, status, flow_lists::FLOWS);
        if (!obstacle.empty()) throw Failure(obstacle);
        const bool is_ndpi = member_of(status, {"version", "ndpi"}).isString();
        m_style.engine_id = is_ndpi ? NDPI : USER_DEFINED;
        records = m_records.look(ask, Moment::now());
        tell(m_daemon_trouble, "");
    } catch (const Failure& e) {
        m_daemon.reset();
        tell(m_daemon_trouble, e.what());
    }
    send(records);
}

void IpfixRun::send(const std::vector<FlowRecord>& records) {
    try {
        m_exporter.send(records, m_style);
        tell(m_collector_trouble, "");
    } catch (const Failure& e) {
        tell(m_collector_trouble, e.what());
    }
    if (const uint64_t dropped = m_exporter.take_dropped(); dropped > 0)
        m_context.complain(counted(dropped, "record", "records") +
                           " dropped: the collector has been away too long");
}

void IpfixRun::send_rest() {
    const interrupt::Deferred uninterrupted;
    send(m_records.rest());
}

/** Each trouble once, and its end. */
void IpfixRun::tell(std::string& told, const std::string& trouble) const {
    if (told.empty() && !trouble.empty()) m_context.complain(trouble + "; waiting");
    if (!told.empty() && trouble.empty())
        m_context.complain(&told == &m_daemon_trouble ? "the flows are told again"
                                                      : "the collector is there again");
    told = trouble;
}

}  // namespace brumectl::flows
