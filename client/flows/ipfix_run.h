#pragma once
// `flows --ipfix`: look after look at the flows, whose records go to a collector.

#include "client/context.h"
#include "client/flows/flow_query.h"
#include "client/flows/flow_records.h"
#include "client/flows/ipfix_exporter.h"

namespace brumectl::flows {

class IpfixRun {
 public:
    IpfixRun(Context& context, const FlowQuery& query, const Collector& collector, double delay_sec,
             bool for_nfdump);

    /** Never returns. Waits for a daemon and a collector that aren't there. Throws Interrupted. */
    [[noreturn]] void run();

 private:
    void look();
    void send(const std::vector<FlowRecord>& records);
    void send_rest();
    void tell(std::string& told, const std::string& trouble) const;

    Context& m_context;
    const uint64_t m_delay_ms;
    FlowRecords m_records;
    IpfixExporter m_exporter;
    std::unique_ptr<Daemon> m_daemon;
    IpfixStyle m_style = {};
    std::string m_daemon_trouble;     ///< as last told; empty if all is well
    std::string m_collector_trouble;  ///< likewise
};

}  // namespace brumectl::flows
