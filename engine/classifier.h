#pragma once
// The engine's use of nDPI: packets of a flow in, the flow's verdict out. A flow is dissected until nDPI has
// found all that it wants to know, or until it gives up; then its dissection is freed. Nothing else decides
// when a verdict is final, so that it doesn't depend on who asks.

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
    /** Takes some ten milliseconds. Throws Error if nDPI can't be had, or isn't the one we were built with.
     */
    Classifier();
    Classifier(const Classifier&) = delete;
    Classifier& operator=(const Classifier&) = delete;

    /**
     * Takes the next packet of an undecided flow, already counted in it, into account. A final verdict leaves
     * the flow's details in it. Throws std::bad_alloc.
     */
    void inspect(Flow& flow, const Frame& frame, uint64_t now_ms);
    /** Decides an undecided flow with what nDPI knows or guesses by now. Throws std::bad_alloc. */
    void give_up(Flow& flow);

    /**
     * Forgets what nDPI has learned about hosts from earlier flows. Takes as long as the constructor if there
     * was anything, nothing otherwise. Throws like the constructor, and then the old state stays.
     */
    void forget_links();
    /** Whether it classifies as a new one would. */
    bool is_clean() const { return !m_links_learned; }
    /** Forgets which protocols were found; there are no flows that have been by then. */
    void forget_protocols() { m_protocols.clear(); }

    /** As nDPI names them. */
    const char* category_name(uint16_t category) const;
    static const char* confidence_name(uint8_t confidence);
    static const char* risk_name(unsigned bit);

    /** Calls `visit` with the entry of every protocol that was ever found. */
    template <typename Visit>
    void for_each_protocol(Visit visit) const {
        for (const auto& [pair, entry] : m_protocols)
            visit(entry);
    }
    /** All flows have ended: nothing that was counted is open any more. */
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
    std::string m_attributes;  ///< of the flow that is being decided; kept for its memory
    std::unordered_map<uint32_t, ProtocolEntry>
        m_protocols;  ///< by master and application; entries never move
};

}  // namespace corvo::engine
