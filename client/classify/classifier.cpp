#include "client/classify/classifier.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>

#include "client/classify/capture_source.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/json_access.h"
#include "client/text/terminal.h"

namespace brumectl {

namespace {

/** Also limits what the daemon keeps of a piece while it works on it. */
constexpr uint64_t MOST_BYTES = 4UL * 1024 * 1024;
/** From this size on, a capture repays that each of the engine's workers gets ready for it. */
constexpr uint64_t WORTH_SHARING = 64UL * 1024 * 1024;
constexpr size_t FIRST_FRAMES = 1000, MOST_FRAMES = 20000;
/** A reply with all packets has to fit in a datagram of 8 MiB; a packet takes about 450 bytes there. */
constexpr size_t FIRST_PACKETS = 200, MOST_PACKETS = 2000;

/** The engine's errors, and what they say about a packet. */
constexpr struct {
    const char* name;
    const char* text;
} ERRORS[] = {
    {"table_full", "no room for their flow"}, {"no_memory", "no memory for their flow"},
    {"not_ip", "neither IPv4 nor IPv6"},      {"ipv4_fragment", "later fragments of IPv4"},
    {"cut_short", "headers cut short"},       {"ipv6_fragment", "later fragments of IPv6"},
};
constexpr const char* BROKEN = "IP headers that can't be";

/** Empty for something without a place in a folder, such as a pipe. Throws Failure if it doesn't exist. */
std::string absolute_path(const std::string& file) {
    char path[PATH_MAX];
    if (realpath(file.c_str(), path)) return path;
    const int err = errno;
    if (access(file.c_str(), F_OK) != 0) throw Failure(strerror(err));
    return {};
}

/** The daemon's text for a file that it can't open or whose format it doesn't know. */
bool is_unseen(const ErrorReply& error) {
    return strstr(error.what(), "not found or wrong format") != nullptr;
}

Volume volume_of(const Json::Value& protocol) {
    return {count_of(member_of(protocol, "packets")), count_of(member_of(protocol, "bytes")),
            count_of(member_of(protocol, "flows")), count_of(member_of(protocol, "guessed"))};
}

}  // namespace

/** The work on one file. */
class Classifier::Work {
 public:
    Work(Classifier& owner, FileResult& result)
        : m_daemon(owner.m_daemon),
          m_copies(owner.m_copies),
          m_options(owner.m_options),
          m_hooks(owner.m_hooks),
          m_result(result),
          m_pace(m_options.packets ? Pace(FIRST_PACKETS, MOST_PACKETS) : Pace(FIRST_FRAMES, MOST_FRAMES)),
          m_writer(m_copies) {
        if (m_options.flows) m_own.emplace(m_daemon, m_options.guess);
        m_result.has_flows = m_options.flows;
    }

    void run() {
        const std::string path = m_result.file == "-" ? "" : absolute_path(m_result.file);
        auto source = CaptureSource::open(path.empty() ? m_result.file : path, {m_options.filter, [this] {
                                                                                    if (m_own) m_own->keep();
                                                                                }});
        m_copies.prepare(path);
        m_is_shared = !m_options.packets && (source->size() == 0 || source->size() >= WORTH_SHARING);
        push_all(*source);
        sum_up();
        if (!source->damage().empty())
            throw Failure("damaged after " + counted(m_number, "packet", "packets") + ": " +
                          source->damage());
    }

 private:
    void push_all(CaptureSource& source) {
        const int link = source.link();
        RawFrame frame;
        m_writer.begin();
        while (source.next(frame)) {
            add(link, frame);
            const size_t frames = m_options.packets ? m_piece.size() : m_writer.frames();
            if (frames < m_pace.frames() && m_writer.bytes() < MOST_BYTES) continue;
            push_piece(source);
            // Only pieces after the first can reach another path that has taken over the name.
            if (m_own && m_result.pieces == 1) m_own->check();
        }
        if (m_writer.frames() > 0 || !m_piece.empty() || m_result.pieces == 0) push_piece(source);
    }

    void add(int link, const RawFrame& raw) {
        ++m_number;
        if (m_number == 1) m_start_usec = raw.usec;
        const uint32_t reason = link_layer::to_ethernet(link, raw, m_frame);
        PieceFrame* shown = nullptr;
        if (reason != 0) {
            m_left_out[reason].add(raw.len);
            if (m_options.packets) shown = &m_piece.add_left_out(reason, raw.len);
        } else {
            m_writer.add(m_frame, raw.usec);
            m_sent.add(m_frame.size());
            m_result.padded += m_frame.padded ? 1 : 0;
            if (m_options.packets) shown = &m_piece.add(m_writer.last(), m_frame.size());
        }
        if (shown == nullptr) return;
        shown->usec = raw.usec;
        shown->number = m_number;
    }

    void push_piece(const CaptureSource& source) {
        Json::Value answer;
        if (m_writer.frames() > 0) {
            m_writer.finish();
            const auto begin = std::chrono::steady_clock::now();
            answer = push();
            const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
            m_pace.took(m_writer.frames(), taken.count());
            ++m_result.pieces;
        }
        if (m_options.packets) take_packets(answer["pkts"]);
        m_writer.begin();
        m_piece.clear();
        if (m_hooks.progress) m_hooks.progress(source.progress());
        interrupt::check();
    }

    Json::Value push() {
        Json::Value params;
        params["type"] = "filename";
        params["reset"] = !m_own && m_options.reset && m_result.pieces == 0;
        params["extended"] = m_options.packets;
        params["ns_id"] = m_options.ns_id;
        params["dpaddr"] = m_own ? m_own->name() : m_options.dpaddr;
        if (m_own && m_is_shared && m_result.pieces == 0) m_own->open();
        if (m_own) m_own->pushed();
        for (;;) {
            params["filename"] = m_copies.path();
            try {
                Json::Value answer = m_daemon.call("push_pcap", params);
                if (!answer.isObject() || (m_options.packets && !answer["pkts"].isArray()))
                    throw Failure("the daemon's answer has no list of packets");
                return answer;
            } catch (const ErrorReply& e) {
                if (!is_unseen(e)) throw;
            }
            if (m_result.pieces > 0 || !m_copies.use_name())
                throw Failure("the daemon can't read " + m_copies.path() +
                              ", though it exists here: the daemon may run on another machine, in a "
                              "container, with a /tmp of its own, or as a user who may not; set TMPDIR to a "
                              "folder that the daemon sees, too");
        }
    }

    void take_packets(const Json::Value& packets) {
        m_result.strays += m_piece.align(packets);
        for (const Json::Value& packet : packets) {
            if (!packet.isObject() || !packet["protocol"].isString())
                throw Failure("the daemon's answer is no list of packets");
            if (!m_own)
                m_result.tally.of(packet["protocol"].asString())
                    .add(packet["len"].isUInt() ? packet["len"].asUInt() : 0);
        }
        for (const PieceFrame& frame : m_piece.frames()) {
            if (frame.is_ip)
                m_result.course.add(frame.answer ? (*frame.answer)["protocol"].asString() : "", frame.usec,
                                    frame.len);
            if (m_own || frame.reason != 0) continue;
            if (!frame.is_ip) m_result.tally.add_undecoded(BROKEN, 1, frame.len);
            if (frame.is_ip && !frame.answer) m_result.tally.unclassified.add(frame.len);
        }
        if (m_hooks.piece) m_hooks.piece(m_piece, m_start_usec);
    }

    void sum_up() {
        for (const auto& [reason, volume] : m_left_out)
            m_result.tally.add_undecoded(link_layer::reason_text(reason), volume.packets, volume.bytes);
        if (!m_own || !m_own->may_exist()) return;
        const Json::Value summary = m_own->finish();
        Volume counted;
        const Json::Value& protocols = member_of(summary, "protocols");
        if (!protocols.isObject()) throw Failure("the answer of 'flows.summary' has no protocols");
        for (const std::string& name : protocols.getMemberNames()) {
            const Volume volume = volume_of(protocols[name]);
            (name == UNCLASSIFIED ? m_result.tally.unclassified : m_result.tally.of(name)) += volume;
            counted += volume;
        }
        m_result.evicted = count_of(member_of(summary, "evicted"));
        count_errors(member_of(summary, "errors"), counted, volume_of(member_of(summary, "pushed")));
        if (m_hooks.flows) m_hooks.flows(*m_own);
    }

    /** Counts packets that are in no flow: those not passed to the engine, and those that it refused. */
    void count_errors(const Json::Value& errors, const Volume& counted, const Volume& pushed) {
        const auto above = [](uint64_t more, uint64_t less) { return more > less ? more - less : 0; };
        Tally& tally = m_result.tally;
        tally.add_undecoded(BROKEN, above(m_sent.packets, pushed.packets), above(m_sent.bytes, pushed.bytes));
        for (const auto& error : ERRORS)
            tally.add_undecoded(error.text, count_of(member_of(errors, error.name)), 0);
        tally.undecoded.bytes += above(pushed.bytes, counted.bytes);
    }

    Daemon& m_daemon;
    Copies& m_copies;
    const ClassifyOptions& m_options;
    const Hooks& m_hooks;
    FileResult& m_result;
    Pace m_pace;
    PieceWriter m_writer;
    Piece m_piece;  ///< only with `packets`
    std::optional<CapturePath> m_own = {};
    bool m_is_shared = false;  ///< the engine's workers may share the frames, as they need no answers
    EthernetFrame m_frame;
    std::map<uint32_t, Volume> m_left_out;
    Volume m_sent;
    uint64_t m_number = 0;
    uint64_t m_start_usec = 0;
};

FileResult Classifier::run(const std::string& file) {
    FileResult result;
    result.file = file;
    try {
        Work(*this, result).run();
    } catch (const NoDaemon&) {
        throw;
    } catch (const TimedOut&) {
        throw;
    } catch (const Usage&) {
        throw;
    } catch (const Failure& e) {
        result.error = e.what();
    }
    return result;
}

}  // namespace brumectl
