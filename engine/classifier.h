#pragma once
// The engine's use of nDPI: packets of a flow go in, the flow's verdict comes out. A flow is dissected until
// nDPI has found all it wants to know, or gives up; then its dissection is freed. Nothing else decides when a
// verdict is final, so verdicts don't depend on who asks.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "flow.h"
#include "frame.h"

namespace corvo::engine {

class Classifier {
 public:
    /**
     * Takes some ten milliseconds. Throws Error if nDPI fails to start, or isn't the version we
     * were built with.
     */
    Classifier();
    Classifier(const Classifier&) = delete;
    Classifier& operator=(const Classifier&) = delete;

    /**
     * Feeds the next packet of an undecided flow to nDPI; the packet is already counted in the flow. A final
     * verdict stores the details in the flow. Throws std::bad_alloc.
     */
    void inspect(Flow& flow, const Frame& frame, uint64_t now_ms);
    /** Decides an undecided flow from what nDPI knows or can guess so far. Throws std::bad_alloc. */
    void give_up(Flow& flow);

    /**
     * Forgets what nDPI has learned about hosts from earlier flows. Takes as long as the constructor
     * if it learned anything, otherwise no time. Throws what the constructor throws, leaving the old
     * state in place.
     */
    void forget_links();
    /** Whether it classifies exactly as a new one would. */
    bool is_clean() const { return !m_links_learned; }
    /** Forgets which protocols were found. No flow with a verdict may be left by then. */
    void forget_protocols() { m_protocols.clear(); }

    /** nDPI's own names. */
    const char* category_name(uint16_t category) const;
    static const char* confidence_name(uint8_t confidence);
    static const char* risk_name(unsigned bit);

    /** Calls `visit` with the entry of every protocol found so far. */
    template <typename Visit>
    void for_each_protocol(Visit visit) const {
        for (const auto& [pair, entry] : m_protocols)
            visit(entry);
    }
    /** To be called when all flows have ended: nothing that was counted is open any more. */
    void close_counts() {
        for (auto& [pair, entry] : m_protocols)
            entry.open = {};
    }

 private:
    struct ModuleDeleter {
        void operator()(ndpi_detection_module_struct* module) const { ndpi_exit_detection_module(module); }
    };
    using Module = std::unique_ptr<ndpi_detection_module_struct, ModuleDeleter>;

    static Module open_module();
    const unsigned char* aligned_copy(const Frame& frame);
    void set_verdict(Flow& flow, const ndpi_protocol& found);
    void decide(Flow& flow, ndpi_protocol found);
    ProtocolEntry* entry_of(const ndpi_protocol& protocol);

    Module m_module;
    bool m_links_learned = false;
    std::vector<uint64_t> m_scratch;
    std::string m_attributes;  ///< scratch text for the flow being decided; kept to reuse its memory
    std::unordered_map<uint32_t, ProtocolEntry>
        m_protocols;  ///< by master and application; entries never move
};

}  // namespace corvo::engine
