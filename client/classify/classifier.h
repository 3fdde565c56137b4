#pragma once
// Passes capture files through the daemon's engine piece by piece and sums up the results.

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
    std::string filter = {};  ///< BPF; empty for everything
    bool reset = true;        ///< whether the engine forgets its flows before each file
    bool flows =
        false;  ///< use a separate data path, which reports flows; the two settings above are then ignored
    bool guess = true;     ///< flows that were never named count under a guess
    bool packets = false;  ///< request a result for each packet
};

struct FileResult {
    std::string file = {};
    Tally tally = {};
    Course course = {};  ///< only with `packets`
    bool has_flows = false;
    uint64_t evicted = 0;  ///< flows forgotten before they ended
    uint64_t pieces = 0;
    uint64_t padded = 0;     ///< frames truncated by the capture, padded with zeros
    uint64_t strays = 0;     ///< packets in the replies that match no frame of the file
    std::string error = {};  ///< empty if the whole file was classified
    // Some of the engine's lists, for display: the largest by bytes.
    std::vector<Json::Value> flows = {};
    std::vector<Json::Value> hosts = {};
};

class Classifier {
 public:
    /** Called along the way; each may be empty. */
    struct Hooks {
        /** Fraction of the file that is done, 0 to 1. */
        std::function<void(double)> progress = {};
        /** A piece with the results for its frames, valid during the call. `start_usec` is the file's. */
        std::function<void(const Piece&, uint64_t start_usec)> piece = {};
        /** All flows are ready to be listed. */
        std::function<void(CapturePath&)> flows = {};
    };

    Classifier(Daemon& daemon, Copies& copies, ClassifyOptions options, Hooks hooks)
        : m_daemon(daemon), m_copies(copies), m_options(std::move(options)), m_hooks(std::move(hooks)) {}

    /**
     * `file` "-" is standard input. Problems with the file, and the daemon's objections to it, are reported
     * in the result, together with what was found up to there. Throws NoDaemon, TimedOut, Usage for the
     * filter, Interrupted.
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
