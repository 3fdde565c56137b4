#include "client/words/push_remarks.h"

#include "client/classify/capture_source.h"
#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/text/terminal.h"
#include "client/wire/daemon.h"
#include "client/wire/local_daemon.h"

namespace brumectl {

namespace {

constexpr const char* NO_ROOM[] = {"table_full", "no_memory"};

}  // namespace

PushRemarks::PushRemarks(Daemon& daemon, const Json::Value& params)
    : m_daemon(daemon), m_params(params), m_refused_before(refused()) {}

void PushRemarks::tell(const Terminal& err) const {
    tell_damage(err);
    try {
        if (const uint64_t now = refused(); now > m_refused_before)
            err.print("brumectl: " +
                      counted(now - m_refused_before, "packet found no room for its flow",
                              "packets found no room for their flows") +
                      "\n");
    } catch (const Failure&) {
        return;  // the push has succeeded, even if the daemon has gone since
    }
}

uint64_t PushRemarks::refused() const {
    Json::Value params = Json::objectValue;
    if (const Json::Value& dpaddr = member_of(m_params, "dpaddr"); !dpaddr.isNull())
        params["dpaddr"] = dpaddr;
    uint64_t packets = 0;
    try {
        const Json::Value summary = m_daemon.call("flows.summary", params);
        for (const char* error : NO_ROOM)
            packets += count_of(member_of(summary, {"errors", error}));
    } catch (const ErrorReply&) {
        return 0;  // another engine, or a data path that the push will create
    }
    return packets;
}

void PushRemarks::tell_damage(const Terminal& err) const {
    const std::string file = string_of(member_of(m_params, "filename"));
    if (file.empty() || !on_this_machine(m_daemon.address())) return;
    try {
        const auto source = CaptureSource::open(file, {});
        RawFrame frame;
        uint64_t number = 0;
        while (source->next(frame))
            ++number;
        if (!source->damage().empty())
            err.print("brumectl: " + harmless(file) + ": damaged after " +
                      counted(number, "packet", "packets") + ": " + harmless(source->damage()) + "\n");
    } catch (const Failure&) {
        return;  // the daemon sees another file there, or may read what we may not
    }
}

}  // namespace brumectl
