#pragma once
// The contents of a daemon's report: `cvdump.json`, or the raw dump `cv_hog_dump.txt` of a stall. Reports are
// written by a dying process, so they may be truncated, and their text isn't always JSON.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace brumectl {

struct EvidenceReport {
    enum cause_e { NONE, CRASH, STALL, STOP, UNKNOWN };

    cause_e cause = NONE;
    std::string signal = {};  ///< "SIGSEGV", or the text for an orderly stop
    uint64_t time = 0;        ///< seconds since the Epoch; 0 if the report doesn't say
    std::string version = {};
    std::vector<std::string> backtrace = {};  ///< one element per frame, innermost first
    Json::Value json = {};                    ///< the whole report as JSON; null if it can't be read as JSON

    static EvidenceReport from_json_text(const std::string& text);
    /** NONE if the value isn't an object. */
    static EvidenceReport from_json(Json::Value json);
    static EvidenceReport from_stall_dump(const std::string& text);
};

/** "crash", "stall", "stop", "killed" if nothing was left, "unknown" if it can't be read. */
const char* cause_text(EvidenceReport::cause_e cause);
/** The report's text as valid JSON: the original contains the stack as raw lines. */
std::string repaired_json(const std::string& text);
/** "corvo::server::Server::run()+0x1c  brumecpd" for a line such as "./brumecpd(_ZN…+0x1c)[0x…]". */
std::string readable_frame(const std::string& frame);

}  // namespace brumectl
