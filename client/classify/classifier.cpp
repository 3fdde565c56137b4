#include "client/classify/classifier.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/terminal.h"

namespace brumectl {

namespace {

std::string absolute_path(const std::string& file) {
    char path[PATH_MAX];
    if (!realpath(file.c_str(), path)) throw Failure(strerror(errno));
    return path;
}

/** The daemon's words for a file that it can't open, or doesn't know the format of. */
bool is_unseen(const ErrorReply& error) {
    return strstr(error.what(), "not found or wrong format") != nullptr;
}

/** What the daemon was given can't be found, or opened, by it. */
class Unseen : public Failure {
 public:
    explicit Unseen(const std::string& path)
        : Failure("the daemon can't read " + path +
                  ", though it exists here: the daemon may run on another machine, in a container, with a "
                  "/tmp of its own, or as a user who may not; set TMPDIR to a folder that the daemon sees, "
                  "too") {}
};

}  // namespace

/** What has to be known of a file before the first piece of it goes out. */
struct Classifier::Survey {
    uint64_t frames = 0;
    uint64_t bytes = 0;
    uint64_t first_usec = UINT64_MAX;
    uint64_t last_usec = 0;
    bool daemon_can_read_it = false;  ///< as it is, and in one piece
};

FileResult Classifier::run(const std::string& file) {
    FileResult result;
    result.file = file;
    try {
        classify(file, result);
    } catch (const NoDaemon&) {
        throw;
    } catch (const TimedOut&) {
        throw;
    } catch (const Usage&) {
        throw;
    } catch (const Failure& e) {
        result.error = e.what();
    }
    if (result.pieces != 1 || !result.error.empty()) result.answer = Json::Value();
    return result;
}

Classifier::Survey Classifier::survey(CaptureSource& source) {
    Survey out;
    CaptureSource::Frame frame;
    while (source.next(frame)) {
        ++out.frames;
        out.bytes += frame.bytes.size();
        out.first_usec = std::min(out.first_usec, frame.usec);
        out.last_usec = std::max(out.last_usec, frame.usec);
    }
    if (out.frames == 0) out.first_usec = 0;
    out.daemon_can_read_it = source.is_daemons_format() && !source.repairs().any() &&
                             source.damage().empty() && out.frames <= Piece::MAX_FRAMES &&
                             out.bytes <= Piece::MAX_BYTES;
    return out;
}

void Classifier::classify(const std::string& file, FileResult& result) {
    const std::string path = absolute_path(file);
    const Survey known = survey(*CaptureSource::open(path, m_options.filter));
    result.course.set_range(known.first_usec, known.last_usec);

    if (known.daemon_can_read_it && m_copies.can_do_without(path)) {
        try {
            return push_pieces(path, known, false, result);
        } catch (const Unseen&) {
            // For a reason that can't be seen from here. A copy elsewhere may do.
        }
    }
    push_pieces(path, known, true, result);
}

void Classifier::push_pieces(const std::string& path, const Survey& known, bool as_copies,
                             FileResult& result) {
    auto source = CaptureSource::open(path, m_options.filter);
    CaptureSource::Frame frame;
    uint64_t number = 0;
    bool more = source->next(frame);
    do {
        Piece piece(as_copies ? m_copies.create(path) : nullptr);
        for (; more && !piece.full(); more = source->next(frame))
            piece.add(frame, ++number);
        result.repairs = source->repairs();
        result.answer = push(as_copies ? piece.finish_copy() : path, result.pieces == 0);
        ++result.pieces;
        const Json::Value& packets = result.answer["pkts"];
        result.strays += piece.align(packets);
        count(piece, packets, result);
        if (m_hooks.piece) m_hooks.piece(piece, known.first_usec);
        if (m_hooks.progress && known.frames > 0)
            m_hooks.progress(static_cast<double>(number) / static_cast<double>(known.frames));
        interrupt::check();
    } while (more);
    if (!source->damage().empty())
        throw Failure("damaged after " + counted(number, "packet", "packets") + ": " + source->damage());
}

Json::Value Classifier::push(const std::string& path, bool first) {
    Json::Value params;
    params["type"] = "filename";
    params["filename"] = path;
    params["reset"] = m_options.reset && first;
    params["extended"] = true;  // the short answer has no bytes
    params["ns_id"] = m_options.ns_id;
    params["dpaddr"] = m_options.dpaddr;
    try {
        Json::Value answer = m_daemon.call("push_pcap", params);
        if (!answer.isObject() || !answer["pkts"].isArray())
            throw Failure("the daemon's answer has no list of packets");
        return answer;
    } catch (const ErrorReply& e) {
        if (!is_unseen(e)) throw;
        throw Unseen(path);
    }
}

void Classifier::count(const Piece& piece, const Json::Value& packets, FileResult& result) const {
    for (const Json::Value& packet : packets) {
        if (!packet.isObject() || !packet["protocol"].isString())
            throw Failure("the daemon's answer is no list of packets");
        result.tally.of(packet["protocol"].asString())
            .add(packet["len"].isUInt() ? packet["len"].asUInt() : 0);
    }
    for (const PieceFrame& frame : piece.frames()) {
        if (!frame.is_ip) result.tally.not_ip.add(frame.len);
        if (frame.is_ip && !frame.answer) result.tally.unclassified.add(frame.len);
        if (frame.is_ip)
            result.course.add(frame.answer ? (*frame.answer)["protocol"].asString() : "", frame.usec,
                              frame.len);
    }
}

}  // namespace brumectl
