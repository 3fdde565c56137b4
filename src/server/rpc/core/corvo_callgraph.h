#pragma once
// Seam for an image that traces its memory: what such an image knows of its allocations, as a call graph. The
// regular image traces nothing, so there is nothing to write.

#include <json/value.h>

namespace corvo::callgraph {

class CallGraph {
 public:
    /** Writes the graph to `out`. Without a tracer `out` stays as it is. */
    void generate(Json::Value& /*out*/, int /*depth*/, unsigned /*threshold*/) {}
};

}  // namespace corvo::callgraph
