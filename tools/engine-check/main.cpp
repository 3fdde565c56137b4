// brumecp-engine-check LIB: tests whether the daemon could work with an engine library, before it has to.

#include <fcntl.h>
#include <getopt.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tools/engine-check/life.h"
#include "utils/clock.h"
#include "utils/unique_fd.h"

namespace {

using namespace engine_check;
using corvo::UniqueFd;

enum exit_status_e { EXIT_FIT = 0, EXIT_UNFIT = 1, EXIT_USAGE = 2 };

struct Options {
    std::string path;
    double timeout_sec = 10;
};

struct Run {
    StepReader log;
    int status = 0;  ///< as returned by waitpid
    bool timed_out = false;
};

void print_usage(FILE* out) {
    fputs(
        "usage: brumecp-engine-check [--timeout SECONDS] LIB\n"
        "LIB is an engine library, or the folder of a libcvcp_u.so. It is run in a process of its own.\n"
        "Status 0: fit for the daemon, 1: not fit, 2: usage.\n",
        out);
}

/** False if the command line makes no sense. */
bool read_options(int argc, char** argv, Options& options) {
    const option names[] = {{"timeout", required_argument, nullptr, 't'},
                            {"help", no_argument, nullptr, 'h'},
                            {nullptr, 0, nullptr, 0}};
    for (int c = 0; (c = getopt_long(argc, argv, "t:h", names, nullptr)) != -1;) {
        if (c == 'h') {
            print_usage(stdout);
            exit(EXIT_FIT);
        }
        char* end = nullptr;
        if (c == 't') options.timeout_sec = strtod(optarg, &end);
        if (c != 't' || *end != '\0' || !(options.timeout_sec > 0 && options.timeout_sec <= 86400))
            return false;
    }
    if (optind + 1 != argc) return false;
    // A name with a path in it isn't searched for in the system's folders.
    std::error_code ec;
    std::filesystem::path path = std::filesystem::absolute(argv[optind], ec);
    if (std::filesystem::is_directory(path, ec)) path /= "libcvcp_u.so";
    options.path = path.string();
    return true;
}

[[noreturn]] void live(const Options& options, int log_fd, pid_t watcher) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != watcher) _exit(EXIT_UNFIT);
    dup2(STDERR_FILENO, STDOUT_FILENO);  // keeps the engine's own output out of the table
    const StepWriter log(log_fd);
    Life(options.path, log).run();
    log.finish();
    // Nothing of the engine runs any more. What this process inherited from its parent isn't its to clean up.
    _exit(EXIT_FIT);
}

/** Reads the log until it ends or the time is up. */
void watch(int log_fd, uint64_t deadline_ms, Run& run) {
    char piece[4096];
    while (!run.log.finished()) {
        const uint64_t now_ms = corvo::monotonic_ms();
        pollfd poll_fd = {log_fd, POLLIN, 0};
        run.timed_out = now_ms >= deadline_ms;
        if (run.timed_out) return;
        if (poll(&poll_fd, 1, static_cast<int>(deadline_ms - now_ms)) <= 0) continue;
        const ssize_t size = read(log_fd, piece, sizeof(piece));
        if (size == 0) return;
        if (size > 0) run.log.take(piece, static_cast<size_t>(size));
    }
}

/**
 * The end of the log needn't be the end of the process: an engine may have closed the descriptor. False if
 * the time is up.
 */
bool ends_by(pid_t child, uint64_t deadline_ms) {
    const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    for (;;) {
        const uint64_t now_ms = corvo::monotonic_ms();
        pollfd poll_fd = {process.get(), POLLIN, 0};
        const int left_ms = now_ms >= deadline_ms ? 0 : static_cast<int>(deadline_ms - now_ms);
        if (poll(&poll_fd, 1, left_ms) > 0) return true;
        if (left_ms == 0) return false;
    }
}

bool run_engine(const Options& options, Run& run) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    const pid_t watcher = getpid();
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
        reader.reset();
        live(options, writer.get(), watcher);
    }
    setpgid(child, child);
    writer.reset();
    const uint64_t deadline_ms = corvo::monotonic_ms() + static_cast<uint64_t>(options.timeout_sec * 1000);
    watch(reader.get(), deadline_ms, run);
    run.timed_out = run.timed_out || !ends_by(child, deadline_ms);
    if (run.timed_out) kill(-child, SIGKILL);
    while (waitpid(child, &run.status, 0) < 0 && errno == EINTR) {
    }
    return true;
}

/** Why the engine's process ended early; empty if it didn't. */
std::string death_of(const Run& run, const Options& options) {
    if (run.timed_out) {
        char text[64];
        snprintf(text, sizeof(text), "not done within %g s, killed", options.timeout_sec);
        return text;
    }
    if (WIFSIGNALED(run.status)) {
        const int signum = WTERMSIG(run.status);
        return "died of signal " + std::to_string(signum) + " (" + strsignal(signum) + ")";
    }
    if (!run.log.finished())
        return "ended the process with status " + std::to_string(WEXITSTATUS(run.status));
    return {};
}

const char* verdict_word(verdict_e verdict) {
    return verdict == OK ? "ok" : "failed";
}

/** Replaces control characters, which would otherwise get from the engine's texts to the terminal. */
std::string printable(std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
    return text;
}

int print(const Options& options, Run& run) {
    const std::string death = death_of(run, options);
    if (!death.empty()) {
        std::vector<Step>& steps = run.log.steps();
        if (steps.empty() || steps.back().verdict != UNFINISHED) steps.push_back({.name = "between steps"});
        steps.back().verdict = FAILED;
        steps.back().note = death;
    }
    namespace api = corvo::api;
    printf("library  %s\n", printable(options.path).c_str());
    printf("records  InitConfig %zu, ActivateConfig %zu, pkt_ %zu, ExporterConfig %zu bytes\n\n",
           sizeof(api::InitConfig), sizeof(api::ActivateConfig), sizeof(api::pkt_),
           sizeof(api::ExporterConfig));
    printf("%-13s  %-6s  %6s\n", "step", "", "ms");
    size_t failed = 0;
    for (const Step& step : run.log.steps()) {
        failed += step.verdict == OK ? 0 : 1;
        printf("%-13s  %-6s  %6" PRIu64 "%s%s\n", step.name.c_str(), verdict_word(step.verdict), step.ms,
               step.note.empty() ? "" : "  ", printable(step.note).c_str());
    }
    if (failed == 0)
        puts("\nfit for the daemon");
    else
        printf("\nnot fit for the daemon: %zu step%s failed\n", failed, failed == 1 ? "" : "s");
    return failed == 0 ? EXIT_FIT : EXIT_UNFIT;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!read_options(argc, argv, options)) {
        print_usage(stderr);
        return EXIT_USAGE;
    }
    Run run;
    if (!run_engine(options, run)) {
        fprintf(stderr, "brumecp-engine-check: %s\n", strerror(errno));
        return EXIT_UNFIT;
    }
    const int status = print(options, run);
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return status;
    fprintf(stderr, "brumecp-engine-check: the output can't be written: %s\n", strerror(errno));
    return EXIT_UNFIT;
}
