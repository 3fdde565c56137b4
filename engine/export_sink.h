#pragma once
// A destination for samples and records. Takes one text at a time and never blocks.

#include <brumecpd/engine_api.h>
#include <json/value.h>

#include <cstddef>
#include <memory>
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
    /** Texts up to this size arrive as a whole or not at all, bytes. */
    virtual size_t max_text() const = 0;
    /** Why the last text wasn't sent. */
    virtual const std::string& error() const = 0;
    /** Adds the configuration to `out`. */
    virtual void describe(Json::Value& out) const = 0;
};

enum class Payload {
    SAMPLE,  ///< one JSON object
    RECORDS  ///< a JSON object a line
};

/** Null for EXPORTER_NONE. Throws Error if the destination isn't usable. */
std::unique_ptr<ExportSink> make_sink(const api::ExporterConfig& config, Payload payload);

}  // namespace corvo::engine
