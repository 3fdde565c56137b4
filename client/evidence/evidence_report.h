#pragma once
// What a report of the daemon says: `cvdump.json`, or the raw dump `cv_hog_dump.txt` of a stall. Reports are
// written by a dying process, so they may be cut, and their text isn't always JSON.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace brumectl {

struct EvidenceReport {
    enum cause_e { NONE, CRASH, STALL, STOP, UNKNOWN };

    cause_e cause = NONE;
    std::string signal = {};  ///< "SIGSEGV", or the words of an orderly stop
    uint64_t time = 0;        ///< seconds of the epoch; 0 if the report doesn't say
    std::string version = {};
    std::vector<std::string> backtrace = {};  ///< a frame each, innermost first
    Json::Value json = {};                    ///< the whole report as JSON; null if it can't be read as such

    static EvidenceReport from_json_text(const std::string& text);
    /** NONE for what is no object. */
    static EvidenceReport from_json(Json::Value json);
    static EvidenceReport from_stall_dump(const std::string& text);
};

/** "crash", "stall", "stop", "killed" where nothing was left, "unknown" where it can't be read. */
const char* cause_text(EvidenceReport::cause_e cause);
/** The report's text as JSON that every reader takes: its stack stands there in raw lines. */
std::string repaired_json(const std::string& text);
/** "corvo::server::Server::run()+0x1c  brumecpd" of a line such as "./brumecpd(_ZN…+0x1c)[0x…]". */
std::string readable_frame(const std::string& frame);

}  // namespace brumectl
