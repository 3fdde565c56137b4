#include "server/watchdog/corvo_hog_reporter.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "infra/corvo_socket_channel.h"
#include "infra/corvo_version.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_evidence.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

const std::string COMP = "HogRep";
const std::string COMP_UNSUPPORTED = "HopRep";

bool make_dir(const std::string& path) {
    return mkdir(path.c_str(), EVENTS_MODE) == 0 || errno == EEXIST;
}

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
    std::fstream file(m_dump_path, std::ios::in | std::ios::out);
    if (!file) {
        CORVO_LOG(DEBUG, COMP, "hog dump file couldn't be read (normal in case of long hog)");
        // Else this would have been the last hog that anyone hears of.
        get_sig_handler()->drop_bt();
        return;
    }
    auto report = std::make_unique<HogReport>(to_string(file, msg));
    write_hog_report_to_file(report.get());
    keep(std::move(report));
    log_bt();
}

std::string HogReporter::to_string(std::fstream& file, const std::string& prefix) const {
    std::string text = prefix;
    text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    file.close();
    std::remove(m_dump_path.c_str());
    return text;
}

void HogReporter::keep(std::unique_ptr<SignalReport> report) {
    if (m_reports.size() >= m_capacity && !m_reports.empty()) m_reports.pop_front();
    m_reports.push_back(std::move(report));
}

void HogReporter::write_hog_report_to_file(SignalReport* report) {
    const std::string events = get_events_dest_dir_name(SigHandler::log_file());
    const std::string dir = events + get_event_stamp();
    const std::string path = dir + "/" + SigHandler::dump_prefix() + "json";
    if (!make_dir(events) || !make_dir(dir)) return;
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, EVENTS_MODE));
    if (!file) {
        CORVO_LOG(DEBUG, COMP, "Couldn't open file: %s", path.c_str());
        return;
    }
    std::string text = report->to_json().toStyledString();
    std::replace(text.begin(), text.end(), '\n', ' ');
    write_all(file.get(), text.data(), text.size());
    CORVO_LOG(WARN, COMP, "HOG data saved to: %s", dir.c_str());
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
