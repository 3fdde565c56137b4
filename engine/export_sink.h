#pragma once
// Where samples go: one text at a time, and never waiting for it.

#include <json/value.h>

#include <string>

namespace corvo::engine {

class ExportSink {
 public:
    enum Outcome {
        PENDING,  ///< under way: ask again with `poll`
        SENT,
        FAILED,   ///< may be tried again later
        REFUSED,  ///< the receiver doesn't want this text, however often it is tried
    };

    virtual ~ExportSink() = default;

    /** Begins with a text, which must stay where it is until the outcome is another than PENDING. */
    virtual Outcome start(const std::string& text) = 0;
    virtual Outcome poll() = 0;
    /** Why the last text wasn't sent. */
    virtual const std::string& error() const = 0;
    /** Adds what was configured. */
    virtual void describe(Json::Value& out) const = 0;
};

}  // namespace corvo::engine
