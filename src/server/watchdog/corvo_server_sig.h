#pragma once
// What happens in the server process when a signal arrives, and the report that a dying process leaves.
//
// Rules of this file: the process may be corrupt when a handler runs. All memory is allocated at the start,
// facts that can only be queried in normal context are fetched early and kept as text, and output goes
// through `write`. The only exception is the printed stack trace, which comes after the report is on disk and
// has a time limit.

#include <atomic>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "server/watchdog/corvo_info.h"
#include "server/watchdog/corvo_sig_text.h"
#include "server/watchdog/corvo_signal_report.h"

namespace corvo {
class Channel;
}

namespace corvo::server {

class BackwardSig;
class WatchedServer;

/** The handler of every signal that the server handles. Preserves errno. */
void on_ext_signal(int signum);

class SigHandler {
 public:
    static constexpr uint32_t m_buf_size = 4096;
    static constexpr uint32_t m_info_size = 256;
    static constexpr uint32_t m_path_size = 256;

    SigHandler(const SigHandler&) = delete;
    SigHandler& operator=(const SigHandler&) = delete;

    /**
     * `dump_dir` must end in "/". Paths are truncated at 255 characters. Normal context, before the
     * first fork.
     */
    void init(const char* dump_dir, const std::string& log_file);
    void init_plat_info();
    /** Normal context, before the first fork; must outlive all handlers. Null: none to stop or to tell of. */
    void set_server(const WatchedServer* server) { m_server = server; }
    /** Signal-safe. */
    const WatchedServer* server() const { return m_server; }

    static void register_child_signals();
    /** Restores the previous disposition of every signal; signal-safe. */
    static void unregister_child_sig();
    static void update_signal_handler(int signum, void (*handler)(int));
    static const std::vector<int>& reg_sigs() { return m_reg_sigs; }

    /** Writes cvdump.json; if `text` is null, with the description of `signum`. Signal-safe. */
    static void write_sig_report(int signum, const char* text);
    /** `buf` of `size` bytes is scratch space and holds a C string. */
    static void write_sig_report(char* buf, unsigned int size, CorvoDumpInfo::InfoFormat format, int signum,
                                 const char* text);
    /** Up to 100 frames, one per line; signal-safe once `init` has run. */
    static void dump_traceback(int fd);
    /** Both append to the C string in `dst` and return what is left of `size`. */
    static unsigned int dump_server_info_json(char* dst, unsigned int size);
    static unsigned int dump_server_info_plain(char* dst, unsigned int size);

    /** The events directory, including its "/". */
    static std::string get_sig_dump_dir_path();
    static const std::string& hog_dump_name();
    static const std::string& dump_prefix();
    /** The server's log file; signal-safe. */
    static const char* log_file();

    /** Signal context: saves the stack of whatever holds the loop up, and wakes the main loop. */
    void on_hog_signal();
    void save_bt();
    /** Normal context: resolves what `save_bt` saved, if anything, and accepts hog signals again. */
    void restore_bt(std::string& text);
    /** Drops what `save_bt` saved and accepts hog signals again. */
    void drop_bt();
    /** The write end of the channel to the main loop; null removes it. */
    void set_hog_channel(std::shared_ptr<Channel> channel);

    /** Follows the engine's state from here on, so that reports can include its version. */
    static void register_state_change_cb();
    static void unregister_state_change_cb();
    /** JSON text; empty if no engine is active. */
    void set_engine_version(const std::string& version);
    /** The same as a C string, also empty while it is being replaced; signal-safe. */
    const char* engine_version() const;

    /** The events directory as a C string for signal context. */
    const char* dump_dir() const { return m_dump_dir.get(); }
    const char* machine() const { return m_machine.get(); }
    const char* release() const { return m_release.get(); }

 private:
    friend SigHandler* get_sig_handler();
    SigHandler();

    void install_alternate_stack();

    const WatchedServer* m_server = nullptr;
    std::shared_ptr<Channel> m_hog_channel;
    /** What handlers use: a shared_ptr can't be read while it is being replaced. */
    std::atomic<const Channel*> m_hog_push = nullptr;
    std::unique_ptr<char[]> m_report_buf;
    std::unique_ptr<char[]> m_hog_buf;
    std::unique_ptr<char[]> m_log_file;
    std::unique_ptr<char[]> m_dump_dir;
    std::unique_ptr<char[]> m_machine;
    std::unique_ptr<char[]> m_release;
    std::unique_ptr<char[]> m_alternate_stack;
    const std::string m_hog_dump_name = "cv_hog_dump.txt";
    const std::string m_dump_prefix = "cvdump.";
    const std::string m_hog_msg = "-";
    std::string m_engine_version;
    std::atomic<bool> m_engine_version_valid = true;  ///< false while it changes

    // Never destroyed: a signal may arrive while the process's static objects are being destroyed.
    static const std::vector<int>& m_reg_sigs;
    static std::unordered_map<int, struct sigaction>& m_pre_sigact;
    static BackwardSig* m_bt;
    static volatile std::sig_atomic_t
        m_bt_saved;  ///< a trace is waiting, and hog signals are ignored until it is handled
};

/** The only instance, created at the first call, which must be in normal context. Never destroyed. */
SigHandler* get_sig_handler();

}  // namespace corvo::server
