#include "server/watchdog/corvo_hog_reporter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "infra/corvo_socket_channel.h"
#include "infra/corvo_version.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_events_dir.h"
#include "server/watchdog/corvo_wd_evidence.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

const std::string COMP = "HogRep";
const std::string COMP_UNSUPPORTED = "HopRep";

}  // namespace

Json::Value HogReport::to_json() const {
    Json::Value out = SignalReport::to_json();
    out["type"] = "hog";
    out["backtrace"] = m_dump;
    return out;
}

HogReporter::HogReporter(Scheduler* sched, std::deque<std::unique_ptr<SignalReport>>& reports,
                         unsigned int capacity, const std::string& dump_path)
    : m_channels(std::make_unique<SocketChannelPair>("WD")),
      m_reports(reports),
      m_capacity(capacity),
      m_dump_path(dump_path),
      m_sched(sched) {
    m_channels->first()->set_handler(
        [this](state_e state, const std::string& msg, std::string& out) { signal_handler(state, msg, out); });
    get_sig_handler()->set_hog_channel(m_channels->second());
    CORVO_LOG(DEBUG, COMP, "instance created!");
    m_sched->add(m_channels->first(), EVENT_STATE_READ, 0);
}

HogReporter::~HogReporter() {
    get_sig_handler()->set_hog_channel(nullptr);
    m_sched->remove(m_channels->first().get());
}

void HogReporter::signal_handler(int, const std::string& msg, std::string&) {
    const size_t slash = m_dump_path.rfind('/');
    const EventsDir dir(m_dump_path.substr(0, slash + 1), EventsDir::LEAVE);
    const std::string name = m_dump_path.substr(slash + 1);
    const UniqueFd file = dir ? dir.open(name, O_RDWR) : UniqueFd();
    if (!file) {
        CORVO_LOG(DEBUG, COMP, "hog dump file couldn't be read (normal in case of long hog)");
        // Otherwise no later hog would ever be reported.
        get_sig_handler()->drop_bt();
        return;
    }
    auto report = std::make_unique<HogReport>(to_string(file.get(), msg));
    dir.remove(name);
    write_hog_report_to_file(report.get());
    keep(std::move(report));
    log_bt();
}

std::string HogReporter::to_string(int file, const std::string& prefix) {
    std::string text = prefix;
    char chunk[4096];
    for (ssize_t len; (len = read(file, chunk, sizeof chunk)) > 0 || (len < 0 && errno == EINTR);)
        if (len > 0) text.append(chunk, static_cast<size_t>(len));
    return text;
}

void HogReporter::keep(std::unique_ptr<SignalReport> report) {
    if (m_reports.size() >= m_capacity && !m_reports.empty()) m_reports.pop_front();
    m_reports.push_back(std::move(report));
}

void HogReporter::write_hog_report_to_file(SignalReport* report) {
    const EventsDir events(get_events_dest_dir_name(SigHandler::log_file()));
    if (!events) return;
    const EventsDir dir(events, get_event_stamp());
    if (!dir) return;
    const std::string name = SigHandler::dump_prefix() + "json";
    const UniqueFd file = dir.open(name, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file) {
        CORVO_LOG(DEBUG, COMP, "Couldn't open file: %s/%s", dir.path().c_str(), name.c_str());
        return;
    }
    std::string text = report->to_json().toStyledString();
    std::replace(text.begin(), text.end(), '\n', ' ');
    write_all(file.get(), text.data(), text.size());
    CORVO_LOG(WARN, COMP, "HOG data saved to: %s", dir.path().c_str());
}

void HogReporter::log_bt() {
    if (!Version::g_have_dw) {
        CORVO_LOG(WARN, COMP_UNSUPPORTED, "Live Stack trace isn't supported (no libdw)");
        get_sig_handler()->drop_bt();
        return;
    }
    std::string text;
    get_sig_handler()->restore_bt(text);
    if (text.empty())
        CORVO_LOG(ERROR, COMP, "Stack trace requested to be resolved without backtrace");
    else
        CORVO_LOG(WARN, COMP, "***Stack trace***\n%s", text.c_str());
}

}  // namespace corvo::server
