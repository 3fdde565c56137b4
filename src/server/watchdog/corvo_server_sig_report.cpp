// What the server's process writes while it handles a signal: the report of that signal and the hog dump.
// Signal context throughout: texts are put together in buffers that were allocated at the start.

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "infra/corvo_channel.h"
#include "server/watchdog/corvo_frame_lines.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_events_dir.h"
#include "server/watchdog/corvo_wd_server.h"
#include "utils/clock.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

int uptime() {
    const WatchedServer* server = get_sig_handler()->server();
    return server ? server->uptime() : 0;
}

/** Opens a file in the events directory for writing. */
UniqueFd open_dump(const char* name, const char* extension) {
    char text[SigHandler::m_path_size] = "";
    unsigned left = sizeof text - 1;
    add_to_buf(text, get_sig_handler()->dump_dir(), left);
    const size_t length = strlen(text);
    if (length > 1 && text[length - 1] == '/') text[length - 1] = '\0';  // a link before it would be followed
    const UniqueFd dir = open_trusted_dir(AT_FDCWD, text);
    if (!dir) return {};
    text[0] = '\0';
    left = sizeof text - 1;
    add_to_buf(text, name, left);
    add_to_buf(text, extension, left);
    return open_below(dir.get(), text, O_WRONLY | O_CREAT | O_TRUNC);
}

void add_number(char* dst, int64_t number, unsigned int& left) {
    add_to_buf(dst, DecimalText(number).c_str(), left);
}

void add_info(char* dst, CorvoDumpInfo& info, CorvoDumpInfo::InfoFormat format, unsigned int& left) {
    auto* bytes = reinterpret_cast<unsigned char*>(dst);
    info.fill();
    left -= format == CorvoDumpInfo::INFO_JSON ? info.dump_json(bytes, left) : info.dump(bytes, left);
}

}  // namespace

void SigHandler::dump_traceback(int fd) {
    FrameLines lines(fd);
    walk_stack(lines);
}

unsigned int SigHandler::dump_server_info_json(char* dst, unsigned int size) {
    constexpr auto JSON = CorvoDumpInfo::INFO_JSON;
    InfoVersion version;
    InfoPlat platform;
    InfoEngine engine;
    InfoProcess process;
    unsigned left = size;
    add_to_buf(dst, "\"uptime\": ", left);
    add_number(dst, uptime(), left);
    add_to_buf(dst, ", ", left);
    add_info(dst, version, JSON, left);
    add_to_buf(dst, ", \"platform\": ", left);
    add_info(dst, platform, JSON, left);
    add_to_buf(dst, ", \"engine\": ", left);
    add_info(dst, engine, JSON, left);
    add_to_buf(dst, ", \"process\": ", left);
    add_info(dst, process, JSON, left);
    add_to_buf(dst, ", \"logfile\": \"", left);
    add_to_buf(dst, log_file(), left);
    add_to_buf(dst, "\"", left);
    return left;
}

unsigned int SigHandler::dump_server_info_plain(char* dst, unsigned int size) {
    InfoVersion version;
    InfoPlat platform;
    InfoEngine engine;
    InfoProcess process;
    unsigned left = size;
    add_to_buf(dst, "uptime (seconds): ", left);
    add_number(dst, uptime(), left);
    add_to_buf(dst, "\n", left);
    for (CorvoDumpInfo* info :
         {static_cast<CorvoDumpInfo*>(&version), static_cast<CorvoDumpInfo*>(&platform),
          static_cast<CorvoDumpInfo*>(&engine), static_cast<CorvoDumpInfo*>(&process)}) {
        add_info(dst, *info, CorvoDumpInfo::INFO_PLAIN, left);
        add_to_buf(dst, "\n", left);
    }
    add_to_buf(dst, "logfile: ", left);
    add_to_buf(dst, get_sig_handler()->m_log_file.get(), left);
    add_to_buf(dst, "\n", left);
    return left;
}

void SigHandler::write_sig_report(int signum, const char* text) {
    char* buf = get_sig_handler()->m_report_buf.get();
    memset(buf, 0, m_buf_size);
    write_sig_report(buf, m_buf_size, CorvoDumpInfo::INFO_JSON, signum, text);
}

void SigHandler::write_sig_report(char* buf, unsigned int size, CorvoDumpInfo::InfoFormat format, int signum,
                                  const char* text) {
    const bool as_json = format == CorvoDumpInfo::INFO_JSON;
    const UniqueFd file = open_dump(get_sig_handler()->m_dump_prefix.c_str(), as_json ? "json" : "txt");
    if (!file) {
        write_all(STDERR_FILENO, "Couldn't open signal dump file\n");
        return;
    }
    unsigned left = size - 2;
    add_to_buf(buf, as_json ? "{ \"signal\": \"" : "signal: ", left);
    add_to_buf(buf, text ? text : signal_description(signum), left);
    add_to_buf(buf, as_json ? "\", \"time\": " : "time: ", left);
    add_number(buf, realtime_sec(), left);
    if (as_json) add_to_buf(buf, ", ", left);
    left = as_json ? dump_server_info_json(buf, left) : dump_server_info_plain(buf, left);
    add_to_buf(buf, as_json ? ", \"backtrace\":\"" : "backtrace:\n", left);
    write_all(file.get(), buf);
    dump_traceback(file.get());
    if (as_json) write_all(file.get(), "\"}");
    fsync(file.get());
}

void SigHandler::on_hog_signal() {
    char* buf = m_hog_buf.get();
    buf[0] = '\0';
    UniqueFd file = open_dump(m_hog_dump_name.c_str(), "");
    if (!file) {
        write_all(STDERR_FILENO, "Couldn't open HOG dump file\n");
        return;
    }
    unsigned left = m_buf_size - 1;
    add_to_buf(buf, "HOG DETECTED:\n", left);
    add_to_buf(buf, "time: ", left);
    add_number(buf, realtime_sec(), left);
    add_to_buf(buf, "\n", left);
    add_to_buf(buf, "backtrace: \n", left);
    write_all(file.get(), buf);
    dump_traceback(file.get());
    fsync(file.get());
    file.reset();
    save_bt();
    const Channel* channel = m_hog_push;
    if (channel) channel->push(m_hog_msg);
}

}  // namespace corvo::server
