#pragma once
// The daemon's events directory, `cvevents`: a folder named after its time for each abnormal end and each
// stall, and the report of the last stop. Others who can write there can't lead us elsewhere: nothing is
// reached through links, and only what has the form of an event is removed.

#include <cstdint>
#include <string>
#include <vector>

#include "client/evidence/evidence_report.h"
#include "utils/unique_fd.h"

namespace brumectl {

struct EvidenceFile {
    std::string name;
    uint64_t bytes = 0;
};

struct Evidence {
    std::string name = {};  ///< of its folder, or of the report of the last stop
    std::vector<EvidenceFile> files = {};
    EvidenceReport report = {};
    std::string fault = {};  ///< why there is no report, or not everything is known; empty if all is well
    uint64_t bytes() const;
};

class EvidenceDir {
 public:
    /** The report of the last stop, in the directory itself. */
    static constexpr const char* LAST_STOP = "cvdump.json";

    /** Throws Failure. */
    explicit EvidenceDir(const std::string& path);

    /** Absolute and without links, as far as that can be determined. */
    const std::string& path() const { return m_path; }
    /** Oldest first; the last stop at the end. */
    std::vector<Evidence> list() const;
    /** Throws Failure if there is none with that name. */
    Evidence find(const std::string& name) const;
    /** Names of the events' folders, oldest first. */
    std::vector<std::string> stamps() const;
    /** Total size of the files in an event's folder; 0 if it can't be read. */
    uint64_t bytes_of(const std::string& stamp) const;
    /** Throws Failure and removes nothing if the folder contains anything else. */
    void remove(const std::string& stamp) const;

 private:
    corvo::UniqueFd open_stamp(const std::string& stamp) const;
    Evidence read(const std::string& stamp) const;
    Evidence read_last_stop() const;

    std::string m_path;
    corvo::UniqueFd m_fd;
};

/** Whether a name looks like "2026_11_24_13_05_59". */
bool is_stamp(const std::string& name);

}  // namespace brumectl
