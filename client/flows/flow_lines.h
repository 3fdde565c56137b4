#pragma once
// A flow as a line: for people, as JSON, or as comma-separated values. While flows are followed, each line
// also tells what has become of the flow since the previous look.

#include <json/value.h>

#include <string>

#include "client/context.h"

namespace brumectl::flows {

enum change_e { STAYS, IS_NEW, HAS_ENDED };

class FlowLines {
 public:
    enum kind_e { TEXT, JSON, CSV };

    FlowLines(const Context& context, bool csv, bool follow);

    kind_e kind() const { return m_kind; }
    /** The line of titles; empty for JSON. */
    std::string head() const;
    /** The flow itself, the part of its line that doesn't tell of changes. `now_sec`: since 1970. */
    std::string body(const Json::Value& flow, double now_sec) const;
    /** The whole line. At a terminal it is as wide as that at most, and harmless. */
    std::string line(const std::string& body, change_e change, double now_sec) const;

 private:
    std::string shown(const std::string& line, Terminal::colour_e colour) const;

    const Terminal& m_out;
    const kind_e m_kind;
    const bool m_follow;
};

}  // namespace brumectl::flows
