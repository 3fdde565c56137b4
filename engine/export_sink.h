#pragma once
// A destination for samples. Takes one text at a time and never blocks.

#include <json/value.h>

#include <string>

namespace corvo::engine {

class ExportSink {
 public:
    enum Outcome {
        PENDING,  ///< in progress: ask again with `poll`
        SENT,
        FAILED,   ///< may be retried later
        REFUSED,  ///< the receiver rejects this text; retrying won't help
    };

    virtual ~ExportSink() = default;

    /** Starts sending a text, which must stay in place until the outcome is no longer PENDING. */
    virtual Outcome start(const std::string& text) = 0;
    virtual Outcome poll() = 0;
    /** Why the last text wasn't sent. */
    virtual const std::string& error() const = 0;
    /** Adds the configuration to `out`. */
    virtual void describe(Json::Value& out) const = 0;
};

}  // namespace corvo::engine
