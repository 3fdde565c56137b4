#include "server/watchdog/corvo_signal_report.h"

#include <string>

#include "infra/json/corvo_json.h"

namespace corvo::server {
namespace {

/** Replaces all of `dst` with the record's text. */
template <size_t N>
void rewrite(CorvoDumpInfo& info, CorvoDumpInfo::InfoFormat format, char (&dst)[N]) {
    dst[0] = '\0';
    auto* bytes = reinterpret_cast<unsigned char*>(dst);
    if (format == CorvoDumpInfo::INFO_JSON)
        info.dump_json(bytes, N - 1);
    else
        info.dump(bytes, N - 1);
}

void set_if_json(Json::Value& out, const char* key, const std::string& text) {
    Json::Value value;
    if (json::parse(text, value)) out[key] = value;
}

}  // namespace

SignalReport::SignalReport() {
    fill_info_ver();
    fill_info_plat();
    fill_info_engine();
    fill_info_process();
    dump_info_ver(CorvoDumpInfo::INFO_JSON);
    dump_info_plat(CorvoDumpInfo::INFO_JSON);
    dump_info_engine(CorvoDumpInfo::INFO_JSON);
    dump_info_process(CorvoDumpInfo::INFO_JSON);
}

void SignalReport::dump_info_ver(CorvoDumpInfo::InfoFormat format) {
    rewrite(m_info_ver, format, m_ver);
}

void SignalReport::dump_info_plat(CorvoDumpInfo::InfoFormat format) {
    rewrite(m_info_plat, format, m_plat);
}

void SignalReport::dump_info_engine(CorvoDumpInfo::InfoFormat format) {
    rewrite(m_info_engine, format, m_engine);
}

void SignalReport::dump_info_process(CorvoDumpInfo::InfoFormat format) {
    rewrite(m_info_process, format, m_process);
}

Json::Value SignalReport::to_json() const {
    Json::Value out(Json::objectValue);
    Json::Value version;
    if (json::parse("{" + std::string(m_ver) + "}", version)) out["version"] = version["version"];
    set_if_json(out, "platform", m_plat);
    set_if_json(out, "engine", m_engine);
    set_if_json(out, "process", m_process);
    return out;
}

}  // namespace corvo::server
