#pragma once
// The part of a hog report that runs in normal context. The signal handler has saved the stack of whatever
// holds the loop up. Once the main loop runs again, the reporter turns it into a report on disk, one in
// memory and a log line.

#include <deque>
#include <memory>
#include <string>

#include "server/watchdog/corvo_signal_report.h"

namespace corvo {
class Scheduler;
class SocketChannelPair;
}  // namespace corvo

namespace corvo::server {

class HogReport : public SignalReport {
 public:
    explicit HogReport(std::string dump) : m_dump(std::move(dump)) {}
    Json::Value to_json() const override;

 private:
    std::string m_dump;
};

class HogReporter {
 public:
    /** Drops its oldest report to stay within `capacity`. `sched` and `reports` must outlive it. */
    HogReporter(Scheduler* sched, std::deque<std::unique_ptr<SignalReport>>& reports, unsigned int capacity,
                const std::string& dump_path);
    HogReporter(const HogReporter&) = delete;
    HogReporter& operator=(const HogReporter&) = delete;
    ~HogReporter();

    /** The channel's handler: makes a report from the dump file and removes the file. */
    void signal_handler(int state, const std::string& msg, std::string& out);
    /** Returns the prefix followed by the rest of the file. */
    static std::string to_string(int file, const std::string& prefix);
    /** Writes into a time-stamped directory next to the log. Whatever the file system refuses is skipped. */
    void write_hog_report_to_file(SignalReport* report);
    /** Logs the resolved stack, and accepts hog signals again. */
    void log_bt();

 private:
    void keep(std::unique_ptr<SignalReport> report);

    std::unique_ptr<SocketChannelPair> m_channels;
    std::deque<std::unique_ptr<SignalReport>>& m_reports;
    unsigned int m_capacity;
    std::string m_dump_path;
    Scheduler* m_sched;
};

}  // namespace corvo::server
