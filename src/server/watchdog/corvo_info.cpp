#include "server/watchdog/corvo_info.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <iterator>

#include "infra/corvo_version.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_server.h"

namespace corvo::server {
namespace {

constexpr char PATH_LABEL[] = "cp lib path: ";
constexpr unsigned MAX_PATH_LENGTH = 86;
constexpr int ACTIVE = EngineFacts::ACTIVATED;

/** Appends the pieces one after another, up to the first that doesn't fit. Returns the bytes used. */
unsigned append(unsigned char* dst, unsigned size, std::initializer_list<const char*> pieces) {
    unsigned left = size;
    for (const char* piece : pieces)
        if (!add_to_buf(reinterpret_cast<char*>(dst), piece, left)) break;
    return size - left;
}

/** Copies as much as fits. */
template <size_t N>
void copy_cut(char (&dst)[N], const char* text) {
    const size_t length = strnlen(text, N - 1);
    memcpy(dst, text, length);
    dst[length] = '\0';
}

/** Appends as much as fits. */
template <size_t N>
void append_cut(char (&dst)[N], const char* text) {
    strncat(dst, text, N - 1 - strlen(dst));
}

}  // namespace

// --- version -----------------------------------------------------------------------------------------------

void InfoVersion::fill() {
    copy_cut(m_text, Version::g_version);
    if (Version::g_is_optimized) append_cut(m_text, " optimized ");
    if (Version::g_sanitizer) append_cut(m_text, "sanitized");
}

unsigned int InfoVersion::dump(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"version: ", m_text});
}

unsigned int InfoVersion::dump_json(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"\"version\": \"", m_text, "\""});
}

// --- platform ----------------------------------------------------------------------------------------------

void InfoPlat::fill() {
    const SigHandler* handler = get_sig_handler();
    copy_cut(m_machine, handler->machine());
    copy_cut(m_release, handler->release());
}

unsigned int InfoPlat::dump(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"machine: ", m_machine, "; release: ", m_release});
}

unsigned int InfoPlat::dump_json(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"{ \"machine\": \" ", m_machine, "\", \"release\": \"", m_release, "\"}"});
}

// --- engine ------------------------------------------------------------------------------------------------

void InfoEngine::fill() {
    const WatchedServer* server = get_sig_handler()->server();
    EngineFacts facts;
    if (!server || !server->engine_facts(facts)) return;
    copy_cut(m_mode, facts.mode);
    m_state = facts.state;
    if (m_state < ACTIVE) return;

    const char* version = get_sig_handler()->engine_version();
    if (strlen(version) < sizeof m_version) copy_cut(m_version, version);
    copy_cut(m_path, PATH_LABEL);
    static_assert(sizeof PATH_LABEL + MAX_PATH_LENGTH <= sizeof m_path);
    if (strlen(facts.path) <= MAX_PATH_LENGTH) append_cut(m_path, facts.path);
}

unsigned int InfoEngine::dump(unsigned char* dst, unsigned int size) {
    const char* state = eng_state_to_str(m_state);
    if (m_state != ACTIVE) return append(dst, size, {"mode: ", m_mode, "; state: ", state});
    return append(dst, size,
                  {"mode: ", m_mode, "; state: ", state, "; version: ", m_version, "; path: ", m_path});
}

unsigned int InfoEngine::dump_json(unsigned char* dst, unsigned int size) {
    const char* state = eng_state_to_str(m_state);
    if (m_state < ACTIVE)
        return append(dst, size, {"{ \"mode\": \"", m_mode, "\", \"state\": \"", state, "\"}"});
    // A version that is too long, or just being changed, must not cost the rest of the record.
    const char* version = m_version[0] ? m_version : "null";
    return append(dst, size,
                  {"{ \"mode\": \"", m_mode, "\", \"state\": \"", state, "\", \"version\": ", version,
                   ", \"path\": \"", m_path, "\"}"});
}

const char* InfoEngine::eng_state_to_str(int state) {
    static constexpr const char* TEXTS[] = {"not loaded", "deactivated", "activated", "activated (attached)"};
    return state >= 0 && state < static_cast<int>(std::size(TEXTS)) ? TEXTS[state] : "unknown state";
}

// --- process -----------------------------------------------------------------------------------------------

void InfoProcess::fill() {
    m_pid = getpid();
}

unsigned int InfoProcess::dump(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"pid: ", DecimalText(m_pid).c_str()});
}

unsigned int InfoProcess::dump_json(unsigned char* dst, unsigned int size) {
    return append(dst, size, {"{ \"pid\": ", DecimalText(m_pid).c_str(), "}"});
}

}  // namespace corvo::server
