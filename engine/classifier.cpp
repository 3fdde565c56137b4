#include "classifier.h"

#include <dlfcn.h>

#include <cctype>
#include <cstring>
#include <new>
#include <string>

#include "attributes.h"
#include "engine_error.h"

namespace corvo::engine {
namespace {

// How many packets of a flow nDPI may see before it has to decide; the same numbers as in nDPI's own reader.
constexpr uint32_t MAX_TCP_PACKETS = 80;
constexpr uint32_t MAX_OTHER_PACKETS = 24;

constexpr size_t MAX_PACKET = UINT16_MAX;
/**
 * Zeros after each packet, so that a dissector that reads slightly too far sees the same bytes every time.
 */
constexpr size_t SLACK = 64;

/** Whether nDPI remembers the peers of this protocol and classifies later flows by them. */
bool teaches_links(const ndpi_flow_struct& dissection, uint16_t id) {
    switch (id) {
        case NDPI_PROTOCOL_BITTORRENT:
        case NDPI_PROTOCOL_MINING:
        case NDPI_PROTOCOL_OOKLA:
        case NDPI_PROTOCOL_MSTEAMS:
        case NDPI_PROTOCOL_SKYPE_TEAMS:
        case NDPI_PROTOCOL_STUN:
        case NDPI_PROTOCOL_TINC:
        case NDPI_PROTOCOL_ZOOM:
            return true;
        case NDPI_PROTOCOL_TLS:
            return dissection.protos.tls_quic.subjectDN != nullptr;
        default:
            return false;
    }
}

bool is_guess(uint8_t confidence) {
    return confidence == NDPI_CONFIDENCE_MATCH_BY_PORT || confidence == NDPI_CONFIDENCE_MATCH_BY_IP;
}

std::string lower_case(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/**
 * Keeps nDPI's cipher library loaded. It can't free its state, so unloading it with us would leak that state
 * anew with each load.
 */
void keep_cipher_library() {
    dlopen("libgcrypt.so.20", RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

}  // namespace

Classifier::Classifier() : m_module(open_module()), m_scratch((MAX_PACKET + SLACK) / sizeof(uint64_t) + 1) {}

Classifier::Module Classifier::open_module() {
    // This engine accesses the flow structure's fields directly.
    if (ndpi_get_api_version() != NDPI_API_VERSION ||
        ndpi_detection_get_sizeof_ndpi_flow_struct() != sizeof(ndpi_flow_struct)) {
        throw Error(std::string("the installed nDPI ") + ndpi_revision() +
                    " isn't the one that this engine was built with");
    }
    Module module(ndpi_init_detection_module(ndpi_no_prefs));
    if (!module) throw Error("nDPI can't be initialised");
    keep_cipher_library();
    NDPI_PROTOCOL_BITMASK all;
    NDPI_BITMASK_SET_ALL(all);
    ndpi_set_protocol_detection_bitmask2(module.get(), &all);
    ndpi_finalize_initialization(module.get());
    return module;
}

void Classifier::inspect(Flow& flow, const Frame& frame, uint64_t now_ms) {
    if (!flow.dissection) {
        flow.dissection.reset(static_cast<ndpi_flow_struct*>(ndpi_calloc(1, sizeof(ndpi_flow_struct))));
        if (!flow.dissection) throw std::bad_alloc();
    }
    ndpi_protocol found = ndpi_detection_process_packet(m_module.get(), flow.dissection.get(),
                                                        aligned_copy(frame), frame.l3_len, now_ms);
    bool enough = flow.all_packets() > (frame.protocol == PROTO_TCP ? MAX_TCP_PACKETS : MAX_OTHER_PACKETS);
    bool complete = found.app_protocol != NDPI_PROTOCOL_UNKNOWN &&
                    !ndpi_extra_dissection_possible(m_module.get(), flow.dissection.get());
    if (complete)
        decide(flow, found);
    else if (enough)
        give_up(flow);
    else
        set_verdict(flow, found);
}

// nDPI reads multi-byte words in place, and not every processor allows that unaligned.
const unsigned char* Classifier::aligned_copy(const Frame& frame) {
    auto* copy = reinterpret_cast<unsigned char*>(m_scratch.data());
    std::memcpy(copy, frame.l3, frame.l3_len);
    std::memset(copy + frame.l3_len, 0, SLACK);
    return copy;
}

void Classifier::give_up(Flow& flow) {
    flow.decided = true;  // even if this fails, nothing more will follow
    if (!flow.dissection) return;
    uint8_t guessed = 0;
    ndpi_protocol found = ndpi_detection_giveup(m_module.get(), flow.dissection.get(), 0, &guessed);
    if (found.app_protocol == NDPI_PROTOCOL_UNKNOWN) {
        found = ndpi_detection_giveup(m_module.get(), flow.dissection.get(), 1, &guessed);
        flow.verdict.guessed = found.app_protocol != NDPI_PROTOCOL_UNKNOWN;
    }
    decide(flow, found);
}

void Classifier::decide(Flow& flow, ndpi_protocol found) {
    flow.decided = true;
    set_verdict(flow, found);
    m_attributes.clear();
    if (flow.verdict.cls() != 0) read_attributes(*flow.dissection, m_attributes);
    const ndpi_risk risks = flow.dissection->risk;
    if (risks != 0 || !m_attributes.empty())
        flow.details = std::make_unique<FlowDetails>(FlowDetails{risks, m_attributes});
    flow.dissection.reset();
}

void Classifier::set_verdict(Flow& flow, const ndpi_protocol& found) {
    Verdict& verdict = flow.verdict;
    const ndpi_flow_struct& dissection = *flow.dissection;
    bool changed = verdict.app != found.app_protocol || verdict.master != found.master_protocol;
    if (changed) {
        bool known =
            found.app_protocol != NDPI_PROTOCOL_UNKNOWN || found.master_protocol != NDPI_PROTOCOL_UNKNOWN;
        verdict.entry = known ? entry_of(found) : nullptr;
    }
    verdict.app = found.app_protocol;
    verdict.master = found.master_protocol;
    verdict.category = static_cast<uint16_t>(found.category);
    verdict.confidence = static_cast<uint8_t>(dissection.confidence);
    verdict.guessed = verdict.guessed || is_guess(verdict.confidence);
    for (uint16_t id : {dissection.detected_protocol_stack[0], dissection.detected_protocol_stack[1]}) {
        m_links_learned = m_links_learned || teaches_links(dissection, id);
    }
}

ProtocolEntry* Classifier::entry_of(const ndpi_protocol& protocol) {
    uint32_t pair = static_cast<uint32_t>(protocol.master_protocol) << 16 | protocol.app_protocol;
    auto known = m_protocols.find(pair);
    if (known != m_protocols.end()) return &known->second;
    ProtocolEntry entry;
    entry.cls = protocol.app_protocol ? protocol.app_protocol : protocol.master_protocol;
    entry.category = static_cast<uint16_t>(ndpi_get_proto_category(m_module.get(), protocol));
    char full[64] = {};
    entry.full = ndpi_protocol2name(m_module.get(), protocol, full, sizeof full);
    for (uint16_t id : {protocol.master_protocol, protocol.app_protocol}) {
        if (id == NDPI_PROTOCOL_UNKNOWN) continue;
        std::string layer = lower_case(ndpi_get_proto_name(m_module.get(), id));
        if (entry.layers.empty() || entry.layers.back() != layer) entry.layers.push_back(layer);
    }
    return &m_protocols.emplace(pair, std::move(entry)).first->second;
}

void Classifier::forget_links() {
    if (!m_links_learned) return;
    m_module = open_module();
    m_links_learned = false;
}

const char* Classifier::category_name(uint16_t category) const {
    return ndpi_category_get_name(m_module.get(), static_cast<ndpi_protocol_category_t>(category));
}

const char* Classifier::confidence_name(uint8_t confidence) {
    return ndpi_confidence_get_name(static_cast<ndpi_confidence_t>(confidence));
}

const char* Classifier::risk_name(unsigned bit) {
    return ndpi_risk2str(static_cast<ndpi_risk_enum>(bit));
}

}  // namespace corvo::engine
