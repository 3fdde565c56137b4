#pragma once
// Takes capture files through the daemon's engine, a piece at a time, and sums up what it says of them.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "client/classify/copies.h"
#include "client/classify/piece.h"
#include "client/classify/tally.h"
#include "client/daemon.h"

namespace brumectl {

struct ClassifyOptions {
    uint32_t ns_id = 0;
    std::string dpaddr = {};
    std::string filter = {};  ///< BPF; empty: everything
    bool reset = true;        ///< the engine forgets its flows before each file
};

struct FileResult {
    std::string file = {};
    Tally tally = {};
    Course course = {};
    CaptureSource::Repairs repairs = {};
    uint64_t pieces = 0;
    uint64_t strays = 0;     ///< packets of the answers that no frame of the file fits
    std::string error = {};  ///< empty: the whole file was classified
    Json::Value answer;      ///< the daemon's, of a file that went to it in one piece; else null
};

class Classifier {
 public:
    /** What happens on the way; each may be empty. */
    struct Hooks {
        /** Share of the file that is done, 0 to 1. */
        std::function<void(double)> progress = {};
        /** A piece with the answers for its frames, valid during the call. `start_usec` is the file's. */
        std::function<void(const Piece&, uint64_t start_usec)> piece = {};
    };

    Classifier(Daemon& daemon, Copies& copies, ClassifyOptions options, Hooks hooks)
        : m_daemon(daemon), m_copies(copies), m_options(std::move(options)), m_hooks(std::move(hooks)) {}

    /**
     * What is wrong with the file, or what the daemon has against it, is in the result, next to what was
     * found up to there. @throws NoDaemon, TimedOut, Usage for the filter, Interrupted
     */
    FileResult run(const std::string& file);

 private:
    struct Survey;

    void classify(const std::string& file, FileResult& result);
    void push_pieces(const std::string& path, const Survey& known, bool as_copies, FileResult& result);
    static Survey survey(CaptureSource& source);
    Json::Value push(const std::string& path, bool first);
    void count(const Piece& piece, const Json::Value& packets, FileResult& result) const;

    Daemon& m_daemon;
    Copies& m_copies;
    ClassifyOptions m_options;
    Hooks m_hooks;
};

}  // namespace brumectl
