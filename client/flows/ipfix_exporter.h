#pragma once
// Sends records to an IPFIX collector, and keeps those that can't be sent while it is away.

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "client/flows/flow_record.h"
#include "client/flows/ipfix_messages.h"
#include "client/flows/ipfix_socket.h"

namespace brumectl::flows {

class IpfixExporter {
 public:
    /** Records that are kept; beyond it the oldest go. */
    static constexpr size_t MOST_KEPT = 100000;

    IpfixExporter(const Collector& collector, int timeout_ms)
        : m_collector(collector), m_timeout_ms(timeout_ms) {}

    /**
     * Adds the records to those that are kept and sends them all, the oldest first. A style other than the
     * last one begins a new session; its length of messages is chosen here. Over TCP, what was sent to a
     * collector that then went may be lost; over UDP anything may. Throws Failure if the collector is away,
     * Interrupted.
     */
    void send(const std::vector<FlowRecord>& records, IpfixStyle style);
    /** Records that had to go since the last call. */
    uint64_t take_dropped();

 private:
    void keep(const std::vector<FlowRecord>& records);
    void connect(const IpfixStyle& style);
    void send_some();

    const Collector m_collector;
    const int m_timeout_ms;
    std::deque<FlowRecord> m_kept;
    uint64_t m_dropped = 0;
    std::unique_ptr<IpfixSocket> m_socket;  ///< null while there is no session
    std::unique_ptr<IpfixMessages> m_messages;
    IpfixStyle m_style = {};
    uint64_t m_repeat_ms = 0;  ///< when the templates come next over UDP, CLOCK_MONOTONIC
};

}  // namespace brumectl::flows
