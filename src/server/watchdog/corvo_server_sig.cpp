#include "server/watchdog/corvo_server_sig.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "infra/corvo_channel.h"
#include "infra/corvo_logger.h"
#include "infra/corvo_version.h"
#include "server/watchdog/corvo_backward.h"
#include "server/watchdog/corvo_frame_lines.h"
#include "server/watchdog/corvo_wd_events_dir.h"
#include "server/watchdog/corvo_wd_orphan.h"
#include "server/watchdog/corvo_wd_server.h"
#include "utils/clock.h"
#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

constexpr unsigned RESOLVE_LIMIT_SEC = 5;
/** Printing a trace here reads debug information, which takes far more stack than a handler normally does. */
constexpr size_t ALTERNATE_STACK_SIZE = 512UL * 1024;

/** The signal that is killing the process. */
volatile std::sig_atomic_t g_fatal_signum = 0;

std::unique_ptr<char[]> text_buffer(size_t size) {
    return std::make_unique<char[]>(size);
}

void copy_cut(char* dst, size_t size, const char* text) {
    dst[0] = '\0';
    strncat(dst, text, size - 1);
}

bool is_fatal(int signum) {
    switch (signum) {
        case SIGILL:
        case SIGABRT:
        case SIGBUS:
        case SIGFPE:
        case SIGSEGV:
        case SIGSYS:
            return true;
        default:
            return false;
    }
}

/** Only the third argument of a handler tells where the stack of the interrupted code begins. */
void enter_handler(int signum, siginfo_t*, void* ucontext) {
    const InterruptedHere here(ucontext);
    on_ext_signal(signum);
}

struct sigaction our_action(int signum, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    if (handler == on_ext_signal) {
        action.sa_sigaction = enter_handler;
        action.sa_flags = SA_SIGINFO;
    }
    sigemptyset(&action.sa_mask);
    for (int masked : SigHandler::reg_sigs())
        sigaddset(&action.sa_mask, masked);
    // After a stack overflow, there is no room for a handler on the same stack.
    if (is_fatal(signum)) action.sa_flags |= SA_ONSTACK;
    return action;
}

// --- the last moments --------------------------------------------------------------------------------------

/** Ends the process with the signal that was killing it, even if signals are blocked. */
void die_at_once(int) {
    const int signum = g_fatal_signum;
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    sigemptyset(&by_default.sa_mask);
    sigaction(signum, &by_default, nullptr);
    sigset_t released;
    sigemptyset(&released);
    sigaddset(&released, signum);
    raise(signum);
    sigprocmask(SIG_UNBLOCK, &released, nullptr);
}

/**
 * Resolving uses the heap and hangs if the crash came from inside it. A dead server that hangs would look
 * alive to everyone but its clients until the kill timeout.
 */
void limit_time() {
    struct sigaction action {};
    action.sa_handler = die_at_once;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    sigset_t released;
    sigemptyset(&released);
    sigaddset(&released, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &released, nullptr);
    alarm(RESOLVE_LIMIT_SEC);
}

void print_stack(const char* signame) {
    char line[200] = "";
    unsigned left = sizeof line - 1;
    add_to_buf(line, "Printing stack trace due to received signal '", left);
    add_to_buf(line, signame, left);
    add_to_buf(line, "'\n", left);
    write_all(STDERR_FILENO, line);
    Backward::sig_handler_bt();
}

void on_fatal_signal(int signum) {
    // What follows may crash as well, and `abort` unblocks its own signal to get through.
    if (g_fatal_signum != 0) {
        die_at_once(signum);
        return;
    }
    g_fatal_signum = signum;
    SigHandler::write_sig_report(signum, nullptr);
    if (Version::g_have_dw && !Version::g_sanitizer) {
        limit_time();
        print_stack(signal_description(signum));
        alarm(0);
    }
    SigHandler::unregister_child_sig();
    raise(signum);
}

void stop_server(int signum) {
    if (const WatchedServer* server = get_sig_handler()->server()) server->stop(signum);
    SigHandler::unregister_child_sig();
}

}  // namespace

void on_ext_signal(int signum) {
    const int saved_errno = errno;
    switch (signum) {
        case SIGINT:
        case SIGTERM:
            stop_server(signum);
            break;
        case SIGUSR1:
            get_sig_handler()->on_hog_signal();
            break;
        case SIGUSR2:
            if (Version::g_have_dw) print_stack("ASSERT");
            break;
        case SIGPIPE:
            drop_stderr_of_orphan();
            break;
        default:
            if (is_fatal(signum)) on_fatal_signal(signum);
            break;
    }
    errno = saved_errno;
}

// --- set-up ------------------------------------------------------------------------------------------------

const std::vector<int>& SigHandler::m_reg_sigs = *new std::vector<int>{
    SIGINT, SIGTERM, SIGSEGV, SIGUSR1, SIGUSR2, SIGILL, SIGABRT, SIGFPE, SIGBUS, SIGSYS, SIGPIPE};
std::unordered_map<int, struct sigaction>& SigHandler::m_pre_sigact =
    *new std::unordered_map<int, struct sigaction>;
BackwardSig* SigHandler::m_bt = nullptr;
volatile std::sig_atomic_t SigHandler::m_bt_saved = 0;

SigHandler* get_sig_handler() {
    static SigHandler* handler = new SigHandler;
    return handler;
}

SigHandler::SigHandler()
    : m_report_buf(text_buffer(m_buf_size)),
      m_hog_buf(text_buffer(m_buf_size)),
      m_log_file(text_buffer(m_path_size)),
      m_dump_dir(text_buffer(m_path_size)),
      m_machine(text_buffer(m_info_size)),
      m_release(text_buffer(m_info_size)),
      m_alternate_stack(new char[ALTERNATE_STACK_SIZE]) {
    static_assert(std::atomic<const Channel*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
    m_bt = new BackwardSig;
}

void SigHandler::init(const char* dump_dir, const std::string& log_file) {
    copy_cut(m_dump_dir.get(), m_path_size, dump_dir);
    copy_cut(m_log_file.get(), m_path_size, log_file.c_str());
    init_plat_info();
}

void SigHandler::init_plat_info() {
    utsname platform{};
    uname(&platform);
    copy_cut(m_machine.get(), m_info_size, (std::string(platform.machine) + " @ 32 bit").c_str());
    copy_cut(m_release.get(), m_info_size, platform.release);
}

void SigHandler::install_alternate_stack() {
    stack_t present{};
    // A sanitizer has installed its own stack, and would unmap ours in its place.
    if (sigaltstack(nullptr, &present) == 0 && !(present.ss_flags & SS_DISABLE)) return;
    stack_t stack{};
    stack.ss_sp = m_alternate_stack.get();
    stack.ss_size = ALTERNATE_STACK_SIZE;
    sigaltstack(&stack, nullptr);
}

void SigHandler::register_child_signals() {
    get_sig_handler()->install_alternate_stack();
    // Fills the whole map first, because the first handler that runs may read it.
    for (int signum : m_reg_sigs)
        sigaction(signum, nullptr, &m_pre_sigact[signum]);
    for (int signum : m_reg_sigs)
        update_signal_handler(signum, on_ext_signal);
}

void SigHandler::unregister_child_sig() {
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    for (int signum : m_reg_sigs) {
        const auto before = m_pre_sigact.find(signum);
        sigaction(signum, before != m_pre_sigact.end() ? &before->second : &by_default, nullptr);
    }
}

void SigHandler::update_signal_handler(int signum, void (*handler)(int)) {
    const struct sigaction action = our_action(signum, handler);
    sigaction(signum, &action, nullptr);
}

std::string SigHandler::get_sig_dump_dir_path() {
    return get_sig_handler()->m_dump_dir.get();
}

const std::string& SigHandler::hog_dump_name() {
    return get_sig_handler()->m_hog_dump_name;
}

const std::string& SigHandler::dump_prefix() {
    return get_sig_handler()->m_dump_prefix;
}

const char* SigHandler::log_file() {
    const WatchedServer* server = get_sig_handler()->server();
    const char* of_server = server ? server->log_file() : nullptr;
    return of_server ? of_server : get_sig_handler()->m_log_file.get();
}

// --- hogs --------------------------------------------------------------------------------------------------

void SigHandler::save_bt() {
    update_signal_handler(SIGUSR1, SIG_IGN);
    m_bt_saved = 1;
    m_bt->save_bt();
}

void SigHandler::restore_bt(std::string& text) {
    if (m_bt_saved) text = m_bt->restore_bt(Backward::STYLE_GDB);
    drop_bt();
}

void SigHandler::drop_bt() {
    m_bt_saved = 0;
    update_signal_handler(SIGUSR1, on_ext_signal);
}

void SigHandler::set_hog_channel(std::shared_ptr<Channel> channel) {
    m_hog_push = nullptr;
    m_hog_channel = std::move(channel);
    m_hog_push = m_hog_channel.get();
}

// --- the engine's version ----------------------------------------------------------------------------------

void SigHandler::register_state_change_cb() {
    if (const WatchedServer* server = get_sig_handler()->server()) server->follow_engine();
}

void SigHandler::unregister_state_change_cb() {
    if (const WatchedServer* server = get_sig_handler()->server()) server->unfollow_engine();
}

void SigHandler::set_engine_version(const std::string& version) {
    m_engine_version_valid = false;
    m_engine_version = version;
    m_engine_version_valid = true;
}

const char* SigHandler::engine_version() const {
    return m_engine_version_valid ? m_engine_version.c_str() : "";
}

}  // namespace corvo::server
