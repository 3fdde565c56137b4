#pragma once
// Who wants to know of the flows that a data path forgets, and of those that last.

#include "classifier.h"
#include "flow.h"

namespace corvo::engine {

class FlowWatcher {
 public:
    enum why_e {
        ENDED,    ///< its ends have closed it
        IDLE,     ///< no packet for a while
        EVICTED,  ///< it had to make room for another one
        ACTIVE,   ///< it goes on
        STOPPED,  ///< the data path has ended, or all flows were to be forgotten
    };

    virtual ~FlowWatcher() = default;

    /** Unless `why` is ACTIVE, the flow is gone after this. */
    virtual void report(Flow& flow, const Classifier& classifier, why_e why) noexcept = 0;
    /** Whether it's time to report a flow as ACTIVE. Asked about once a second for each flow. */
    virtual bool is_due(const Flow& flow, uint64_t now_ms) const = 0;
};

}  // namespace corvo::engine
