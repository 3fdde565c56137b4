#include "server/corvo_server_inject.h"

#include <sys/stat.h>

#include <cstring>

#include "utils/exception.h"
#include "utils/pcap/pcap_packet.h"
#include "utils/pcap/pcap_reader.h"

namespace corvo::server {

namespace {

/** Fills all inputs except `data`. */
api::pkt_ describe_frame(const CCapPkt& frame, uint32_t ns_id) {
    api::pkt_ pkt;
    pkt.len = frame.GetPktLen();
    pkt.l3_off = static_cast<uint16_t>(frame.l3 - frame.GetPktBuffer());
    pkt.l4_off = static_cast<uint16_t>(frame.l4 - frame.GetPktBuffer());
    pkt.ns_id = ns_id;
    return pkt;
}

const char* transport_name(int protocol) {
    if (protocol == 6) return "tcp";
    return protocol == 17 ? "udp" : "ip";
}

void describe_addresses(const CCapPkt& frame, Engine::PktInfo& info) {
    info.src = frame.GetSrcAddr();
    info.dst = frame.GetDstAddr();
    info.len = frame.GetPktLen();
    info.transport = transport_name(frame.GetProtocol());
    if (frame.IsSYN()) info.attr.emplace_back("syn");
    if (frame.IsFIN()) info.attr.emplace_back("fin");
    if (frame.IsRST()) info.attr.emplace_back("rst");
}

std::unique_ptr<CCapReaderBase> open_capture(const std::string& filename) {
    // Opening a pipe without a writer would block the daemon for ever, and a name with an embedded NUL would
    // open a different file from the one named.
    struct stat st;
    const bool refused = filename.find('\0') != std::string::npos ||
                         (stat(filename.c_str(), &st) == 0 && S_ISFIFO(st.st_mode));
    auto reader = refused ? nullptr : CCapReaderFactory::CreateReader(filename.c_str(), 0);
    if (!reader) throw Exception("Unable to read '" + filename + "' - not found or wrong format");
    return reader;
}

}  // namespace

void PacketBuffer::add(const CCapPkt& frame, uint32_t ns_id, bool described) {
    const uint16_t len = frame.GetPktLen();
    auto copy = std::make_unique_for_overwrite<unsigned char[]>(len);
    std::memcpy(copy.get(), frame.GetPktBuffer(), len);

    api::pkt_& pkt = pkts.emplace_back(describe_frame(frame, ns_id));
    pkt.data = copy.get();
    m_frames.push_back(std::move(copy));
    Engine::PktInfo& info = infos.emplace_back();
    if (described) describe_addresses(frame, info);
    bytes += len;
}

void PacketBuffer::clear() {
    pkts.clear();
    infos.clear();
    m_frames.clear();
    bytes = 0;
}

void Engine::flow_reset(const std::string& dpaddr) {
    coffee(dpaddr, "dp.veld.sui_lut_remove_all_links", {});
    coffee(dpaddr, "dp.ft.sui_ft_kill_all_flows", {});
}

std::unique_ptr<CCapReaderBase> Engine::begin_push(const std::string& dpaddr, const std::string& filename,
                                                   bool reset) {
    validate_state(STATE_ACTIVE);
    if (reset) flow_reset(dpaddr);
    return open_capture(filename);
}

void Engine::push_frames(CCapReaderBase& reader, const std::string& dpaddr, uint32_t ns_id, bool extended,
                         bool described, const PktSink& sink) {
    CCapPkt frame;
    PacketBuffer batch;
    for (;;) {
        const bool more = reader.ReadPacket(&frame);
        if (batch.full() || (!more && !batch.empty())) send_batch(dpaddr, batch, extended, sink);
        if (!more) break;
        if (frame.parse()) batch.add(frame, ns_id, described);
    }
}

void Engine::push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                       bool extended, const PktSink& sink) {
    push_frames(*begin_push(dpaddr, filename, reset), dpaddr, ns_id, extended, extended, sink);
}

void Engine::push_pcap(const std::string& dpaddr, const std::string& filename, bool reset, uint32_t ns_id,
                       bool extended, std::vector<PktInfo>& results) {
    const std::unique_ptr<CCapReaderBase> reader = begin_push(dpaddr, filename, reset);
    results.clear();
    push_frames(*reader, dpaddr, ns_id, extended, /*described=*/true,
                [&results](PktInfo&& info) { results.push_back(std::move(info)); });
}

void Engine::send_batch(const std::string& dpaddr, PacketBuffer& batch, bool extended, const PktSink& sink) {
    push_pkts_internal(dpaddr, batch.pkts, extended, batch.infos);
    for (PktInfo& info : batch.infos) {
        if (info.cls != 0) sink(std::move(info));
    }
    batch.clear();
}

void Engine::push_raw_extended(const std::string& dpaddr, const std::string& data, uint32_t ns_id, bool reset,
                               bool extended, PktInfo& info) {
    validate_state(STATE_ACTIVE);
    if (reset) flow_reset(dpaddr);
    CCapPkt frame(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    if (!frame.parse()) throw Exception("Failed to parse packet");

    std::vector<api::pkt_> pkts;
    pkts.push_back(describe_frame(frame, ns_id));
    pkts[0].data = frame.GetPktBuffer();
    std::vector<PktInfo> infos;
    infos.push_back(std::move(info));
    push_pkts_internal(dpaddr, pkts, extended, infos);
    info = std::move(infos[0]);
}

}  // namespace corvo::server
