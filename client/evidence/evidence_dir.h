#pragma once
// The daemon's events directory, `cvevents`: a folder named by its time for each abnormal end and each stall,
// and the report of the last stop. Whoever else may write there can't lead us elsewhere: nothing is reached
// through links, and only what has an event's shape is removed.

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
    std::string fault = {};  ///< why there's no report, or not all is known; empty: all is well
    uint64_t bytes() const;
};

class EvidenceDir {
 public:
    /** The report that lies in the directory itself, of the last stop. */
    static constexpr const char* LAST_STOP = "cvdump.json";

    /** @throws Failure */
    explicit EvidenceDir(const std::string& path);

    /** Absolute and without links, as far as it can be told. */
    const std::string& path() const { return m_path; }
    /** Oldest first; the last stop at the end. */
    std::vector<Evidence> list() const;
    /** @throws Failure if there's none of that name */
    Evidence find(const std::string& name) const;
    /** Names of the events' folders, oldest first. */
    std::vector<std::string> stamps() const;
    /** What the files in an event's folder take; 0 for one that can't be read. */
    uint64_t bytes_of(const std::string& stamp) const;
    /** @throws Failure, with nothing removed, if there's something else in the folder */
    void remove(const std::string& stamp) const;

 private:
    corvo::UniqueFd open_stamp(const std::string& stamp) const;
    Evidence read(const std::string& stamp) const;
    Evidence read_last_stop() const;

    std::string m_path;
    corvo::UniqueFd m_fd;
};

/** Such as "2026_11_24_13_05_59". */
bool is_stamp(const std::string& name);

}  // namespace brumectl
