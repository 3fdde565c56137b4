#pragma once
// Takes capture files through the daemon's engine, a piece at a time, and sums up what it says of them.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/classify/capture_path.h"
#include "client/classify/copies.h"
#include "client/classify/pace.h"
#include "client/classify/piece.h"
#include "client/classify/tally.h"
#include "client/wire/daemon.h"

namespace brumectl {

struct ClassifyOptions {
    uint32_t ns_id = 0;
    std::string dpaddr = {};
    std::string filter = {};  ///< BPF; empty: everything
    bool reset = true;        ///< the engine forgets its flows before each file
    bool flows = false;  ///< on a path of the capture's own, which tells them; then the two above don't count
    bool guess = true;   ///< flows that were never named count under a guess
    bool packets = false;  ///< each with its own answer
};

struct FileResult {
    std::string file = {};
    Tally tally = {};
    Course course = {};  ///< only with `packets`
    bool has_flows = false;
    uint64_t evicted = 0;  ///< flows that were forgotten before their end
    uint64_t pieces = 0;
    uint64_t padded = 0;     ///< frames that the capture had cut; zeros stand for what is lost
    uint64_t strays = 0;     ///< packets of the answers that no frame of the file fits
    std::string error = {};  ///< empty: the whole file was classified
    // Some of what the engine lists, for whoever shows it: the ones with the most bytes.
    std::vector<Json::Value> flows = {};
    std::vector<Json::Value> hosts = {};
};

class Classifier {
 public:
    /** What happens on the way; each may be empty. */
    struct Hooks {
        /** Share of the file that is done, 0 to 1. */
        std::function<void(double)> progress = {};
        /** A piece with the answers for its frames, valid during the call. `start_usec` is the file's. */
        std::function<void(const Piece&, uint64_t start_usec)> piece = {};
        /** All flows are there to be listed. */
        std::function<void(CapturePath&)> flows = {};
    };

    Classifier(Daemon& daemon, Copies& copies, ClassifyOptions options, Hooks hooks)
        : m_daemon(daemon), m_copies(copies), m_options(std::move(options)), m_hooks(std::move(hooks)) {}

    /**
     * `file` "-" is standard input. What is wrong with the file, or what the daemon has against it, is in the
     * result, next to what was found up to there. @throws NoDaemon, TimedOut, Usage for the filter,
     * Interrupted
     */
    FileResult run(const std::string& file);

 private:
    class Work;

    Daemon& m_daemon;
    Copies& m_copies;
    ClassifyOptions m_options;
    Hooks m_hooks;
};

}  // namespace brumectl
