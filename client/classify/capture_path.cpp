#include "client/classify/capture_path.h"

#include <sys/random.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/json_access.h"
#include "client/wire/flow_lists.h"

namespace brumectl {

namespace {

constexpr int CLOSE_TIMEOUT_MS = 1000;

std::string new_name() {
    uint64_t random = 0;
    if (getrandom(&random, sizeof(random), 0) != sizeof(random)) throw Failure("no random numbers to be had");
    char name[64];
    snprintf(name, sizeof(name), "capture:brumectl-%d-%016" PRIx64, static_cast<int>(getpid()), random);
    return name;
}

}  // namespace

bool CapturePath::is_known(Daemon& daemon) {
    bool has_summary = false;
    bool has_close = false;
    for (const Json::Value& name : daemon.call("cmds")) {
        has_summary = has_summary || name == "flows.summary";
        has_close = has_close || name == "flows.close";
    }
    return has_summary && has_close;
}

CapturePath::CapturePath(Daemon& daemon, bool guess) : m_daemon(daemon), m_guess(guess), m_name(new_name()) {}

CapturePath::~CapturePath() {
    if (!m_may_exist) return;
    const interrupt::Deferred uninterrupted;
    const int timeout_ms = m_daemon.timeout_ms();
    try {
        m_daemon.set_timeout_ms(CLOSE_TIMEOUT_MS);
        m_daemon.call("flows.close", params());
    } catch (const std::exception&) {
        // The daemon is gone, or too busy to reply: then the request is in its queue, or the path expires.
    }
    m_daemon.set_timeout_ms(timeout_ms);
}

Json::Value CapturePath::params() const {
    Json::Value params;
    params["dpaddr"] = m_name;
    return params;
}

Json::Value CapturePath::ask_summary(bool finish) {
    Json::Value params = this->params();
    params["finish"] = finish;
    params["guess"] = m_guess;
    Json::Value summary = m_daemon.call("flows.summary", params);
    const uint64_t instance = count_of(member_of(summary, "instance"));
    if (m_instance == 0) m_instance = instance;
    if (m_instance != instance)
        throw Failure("the engine's data path for it, " + m_name +
                      ", has ended on the way: somebody closed it, or the engine was deactivated");
    return summary;
}

void CapturePath::open() {
    m_may_exist = true;
    Json::Value params = this->params();
    params["answers"] = false;
    try {
        m_instance = count_of(member_of(m_daemon.call("flows.open", params), "instance"));
    } catch (const ErrorReply& e) {
        if (e.code() != ErrorReply::METHOD_NOT_FOUND) throw;
    }
}

void CapturePath::check() {
    if (m_instance == 0) ask_summary(false);
}

void CapturePath::keep() {
    if (!m_may_exist) return;
    const interrupt::Deferred uninterrupted;
    try {
        m_daemon.call("flows.summary", params());
    } catch (const std::exception&) {
        return;
    }
}

Json::Value CapturePath::finish() {
    for (;;) {
        Json::Value summary = ask_summary(true);
        const Json::Value& complete = member_of(summary, "complete");
        if (!complete.isBool() || complete.asBool()) return summary;
        interrupt::check();
    }
}

void CapturePath::list_flows(const Take& take) {
    Json::Value params = this->params();
    params["guess"] = m_guess;
    flow_lists::read(flow_lists::asker(m_daemon), flow_lists::FLOWS, params, take);
}

void CapturePath::list_hosts(const Take& take) {
    flow_lists::read(flow_lists::asker(m_daemon), flow_lists::HOSTS, params(), take);
}

}  // namespace brumectl
