#pragma once
// A report kept in memory and shown by the `events` method. It preserves the state at the time of
// its creation.

#include <json/value.h>

#include "server/watchdog/corvo_info.h"

namespace corvo::server {

class SignalReport {
 public:
    SignalReport();
    SignalReport(const SignalReport&) = delete;
    SignalReport& operator=(const SignalReport&) = delete;
    virtual ~SignalReport() = default;

    /** A record whose text was truncated, and so is no longer JSON, is left out. */
    virtual Json::Value to_json() const;

    // Each updates one record: `fill_` collects its facts, `dump_` writes its text.
    void fill_info_ver() { m_info_ver.fill(); }
    void fill_info_plat() { m_info_plat.fill(); }
    void fill_info_engine() { m_info_engine.fill(); }
    void fill_info_process() { m_info_process.fill(); }
    void dump_info_ver(CorvoDumpInfo::InfoFormat format);
    void dump_info_plat(CorvoDumpInfo::InfoFormat format);
    void dump_info_engine(CorvoDumpInfo::InfoFormat format);
    void dump_info_process(CorvoDumpInfo::InfoFormat format);

 private:
    char m_ver[200] = "";
    char m_plat[200] = "";
    char m_engine[1000] = "";
    char m_process[200] = "";
    InfoVersion m_info_ver;
    InfoPlat m_info_plat;
    InfoEngine m_info_engine;
    InfoProcess m_info_process;
};

}  // namespace corvo::server
