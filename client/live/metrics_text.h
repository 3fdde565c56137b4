#pragma once
// A sample in Prometheus's text format.

#include <cstdint>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>

#include "client/live/live_sample.h"

namespace brumectl {

/** Writes families of metrics. A family without samples produces no output; no sample can appear twice. */
class MetricsWriter {
 public:
    using Labels = std::initializer_list<std::pair<const char*, std::string>>;

    /** Starts a family for what follows. `type` is "gauge" or "counter"; texts must outlive the next call. */
    void family(const char* name, const char* type, const char* help);
    void sample(uint64_t value, Labels labels = {});
    void sample(double value, Labels labels = {});
    const std::string& text() const { return m_text; }

 private:
    void line(Labels labels, const std::string& value);

    const char* m_name = "";
    const char* m_type = "";
    const char* m_help = "";
    std::set<std::string> m_series;  ///< of this family, with their labels
    std::string m_text;
};

std::string metrics_text(const LiveSample& sample);
/** For a daemon that doesn't answer. `why` appears as a comment. */
std::string metrics_text_down(const std::string& why);

}  // namespace brumectl
