#include "tools/engine-check/life.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <exception>
#include <filesystem>

#include "server/corvo_server_inject.h"
#include "tools/captures/sample_flows.h"
#include "utils/clock.h"
#include "utils/pcap/pcap_packet.h"
#include "utils/unique_fd.h"

namespace engine_check {

namespace {

namespace api = corvo::api;
using corvo::server::PacketBuffer;

constexpr uint32_t MAX_FLOWS = 1000;
/** Ticks after which the descriptor must no longer be readable. */
constexpr int MAX_TICKS = 10;
/** The daemon serves nothing else during a call, so one this long is worth a note. */
constexpr uint64_t LONG_MS = 100;
/** Number of bytes cut off the end of a frame, so that its headers stay and its payload is truncated. */
constexpr size_t CUTS[] = {1, 2, 7, 16, 64};

size_t entries(const char* folder) {
    namespace fs = std::filesystem;
    std::error_code ec;
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder, ec), fs::directory_iterator()));
}

/** Calls into the library. Returns the text in `err`, or what the call threw. */
template <typename Fn>
std::string failure_of(Fn&& fn) {
    std::string err;
    try {
        fn(err);
    } catch (const std::exception& e) {
        return std::string("an exception left the function: ") + e.what();
    } catch (...) {
        return "an exception left the function";
    }
    return err;
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words)
        if (!word.empty()) out += (out.empty() ? "" : ", ") + word;
    return out;
}

std::string named(const char* name, const std::string& failure) {
    return failure.empty() ? "" : std::string(name) + ": " + failure;
}

bool readable(int fd) {
    pollfd poll_fd = {fd, POLLIN, 0};
    return poll(&poll_fd, 1, 0) > 0;
}

/** Compares the fields that the library must not change. */
bool same_input(const api::pkt_& a, const api::pkt_& b) {
    return a.data == b.data && a.len == b.len && a.l3_off == b.l3_off && a.l4_off == b.l4_off &&
           a.ns_id == b.ns_id;
}

size_t count_classified(const std::vector<api::pkt_>& pkts) {
    return static_cast<size_t>(
        std::count_if(pkts.begin(), pkts.end(), [](const api::pkt_& pkt) { return pkt.cls != 0; }));
}

void add_frame(PacketBuffer& batch, const test::Bytes& frame, size_t cut) {
    if (cut >= frame.size()) return;
    corvo::CCapPkt packet(frame.data(), frame.size() - cut);
    // The daemon doesn't pass on frames without usable headers.
    if (packet.parse()) batch.add(packet, 0, false);
}

}  // namespace

bool Life::step(const char* name, step_fn work) {
    m_note.clear();
    m_log.begin(name);
    const uint64_t start_ms = corvo::monotonic_ms();
    const std::string failure = (this->*work)();
    const uint64_t ms = corvo::monotonic_ms() - start_ms;
    if (ms >= LONG_MS && m_note.empty()) m_note = "long: everything else waits meanwhile";
    m_log.end(failure.empty() ? OK : FAILED, ms, failure.empty() ? m_note : failure);
    return failure.empty();
}

void Life::run() {
    m_descriptors = entries("/proc/self/fd");
    if (!step("open", &Life::open)) return;
    if (step("functions", &Life::find_functions)) {
        step("run-time", &Life::compare_runtimes);
        live();
    }
    step("close", &Life::close);
}

void Life::live() {
    if (!step("init", &Life::init)) return;
    step("methods", &Life::check_methods);
    step("descriptor", &Life::check_descriptor);
    step("tick", &Life::tick);
    step("watchers", &Life::ask_watchers);
    if (step("activate", &Life::activate)) {
        step("forget flows", &Life::forget_flows);
        step("push", &Life::push);
        step("push cut", &Life::push_cut);
        step("watchers", &Life::ask_watchers);
        step("status", &Life::ask_status);
        step("settle", &Life::settle);
        step("deactivate", &Life::deactivate);
    }
    if (step("deinit", &Life::deinit) && step("init again", &Life::init)) step("deinit", &Life::deinit);
    step("leftovers", &Life::check_leftovers);
}

std::string Life::open() {
    return m_library.open(m_path);
}

std::string Life::find_functions() {
    const std::vector<std::string> missing = m_library.resolve();
    return missing.empty() ? "" : "missing: " + joined(missing);
}

std::string Life::compare_runtimes() {
    const std::vector<std::string> foreign = m_library.foreign_runtimes();
    return foreign.empty() ? "" : "not the daemon's: " + joined(foreign);
}

std::string Life::init() {
    api::InitConfig config;
    config.cp_addr = "corvo-cp";
    config.cmds = m_methods.table();
    return failure_of([&](std::string& err) { m_library.api().init(config, err); });
}

// Calls none of them, as only the library knows what its methods do.
std::string Life::check_methods() {
    const std::vector<std::string> displaced = m_methods.displaced();
    if (!displaced.empty()) return "in the place of the daemon's own: " + joined(displaced);
    const std::vector<std::string> brought = m_methods.brought();
    m_note = brought.empty() ? "none of its own" : joined(brought);
    return {};
}

std::string Life::check_descriptor() {
    int fd = -1;
    std::string err = failure_of([&](std::string& text) { m_library.api().get_evfd(fd, text); });
    if (!err.empty()) return err;
    const std::string number = std::to_string(fd);
    if (fd <= 0) return "must be above 0, is " + number;
    const int flags = fcntl(fd, F_GETFD);
    if (flags < 0) return number + " isn't open";
    const corvo::UniqueFd poller(epoll_create1(EPOLL_CLOEXEC));
    epoll_event event = {};
    event.events = EPOLLIN;
    if (epoll_ctl(poller.get(), EPOLL_CTL_ADD, fd, &event) != 0) return number + " can't be waited for";
    if ((flags & FD_CLOEXEC) == 0) m_note = "stays open in programs that are started: no close-on-exec";
    m_evfd = fd;
    return {};
}

std::string Life::tick() {
    int delay_ms = 0;
    std::string err = failure_of([&](std::string& text) { delay_ms = m_library.api().tick(text); });
    m_note = delay_ms == 0  ? "wants to be called without a pause"
             : delay_ms < 0 ? "next one in 1000 ms, no preference"
                            : "next one in " + std::to_string(delay_ms) + " ms";
    return err;
}

std::string Life::ask_watchers() {
    const corvo::server::EngineApi& functions = m_library.api();
    const auto ask = [&](const char* name, auto&& fn) {
        Json::Value value(Json::objectValue);
        return named(name, failure_of([&](std::string& err) { fn(value, err); }));
    };
    return joined({
        ask("get_collectors",
            [&](Json::Value& out, std::string& err) { functions.get_collectors(out, err); }),
        ask("health_get", [&](Json::Value& out, std::string& err) { functions.health_get(out, true, err); }),
        ask("health_conf_get",
            [&](Json::Value& out, std::string& err) { functions.health_conf_get(out, err); }),
    });
}

std::string Life::ask_status() {
    const corvo::server::EngineApi& functions = m_library.api();
    std::vector<std::string> dps;
    std::vector<std::string> interfaces;
    Json::Value version;
    const std::string failures = joined({
        named("get_version", failure_of([&](std::string& err) { functions.get_version(version, err); })),
        named("get_dps", failure_of([&](std::string& err) { functions.get_dps(dps, err); })),
        named("intf_get", failure_of([&](std::string& err) { functions.intf_get(interfaces, err); })),
    });
    m_note = dps.empty() ? "" : "data paths: " + joined(dps);
    return failures;
}

std::string Life::activate() {
    api::ActivateConfig config;
    config.max_flows = MAX_FLOWS;
    return failure_of([&](std::string& err) { m_library.api().activate(config, err); });
}

std::string Life::forget_flows() {
    for (const char* name : {"dp.veld.sui_lut_remove_all_links", "dp.ft.sui_ft_kill_all_flows"}) {
        std::string result;
        std::string err =
            failure_of([&](std::string& text) { m_library.api().coffee("", name, {}, result, text); });
        if (!err.empty()) return named(name, err);
    }
    return {};
}

std::string Life::push() {
    size_t packets = 0;
    size_t classified = 0;
    for (bool extended : {false, true}) {
        PacketBuffer batch;
        for (const test::Bytes& frame : test::sample_frames())
            add_frame(batch, frame, 0);
        const std::vector<api::pkt_> before = batch.pkts;
        std::string err =
            failure_of([&](std::string& text) { m_library.api().push_pkts("", batch.pkts, text, extended); });
        if (!err.empty()) return err;
        if (batch.pkts.size() != before.size()) return "the number of packets changed";
        if (!std::equal(before.begin(), before.end(), batch.pkts.begin(), same_input))
            return "an input field of a packet changed";
        packets = batch.pkts.size();
        classified = count_classified(batch.pkts);
    }
    m_note = std::to_string(classified) + " of " + std::to_string(packets) + " packets classified";
    return {};
}

std::string Life::push_cut() {
    for (size_t cut : CUTS) {
        PacketBuffer batch;
        for (const test::Bytes& frame : test::sample_frames())
            add_frame(batch, frame, cut);
        std::string err =
            failure_of([&](std::string& text) { m_library.api().push_pkts("", batch.pkts, text, true); });
        if (!err.empty()) return err;
    }
    return {};
}

std::string Life::settle() {
    std::string err;
    int ticks = 0;
    do {
        err = failure_of([&](std::string& text) { m_library.api().tick(text); });
        ++ticks;
    } while (err.empty() && m_evfd > 0 && readable(m_evfd) && ticks < MAX_TICKS);
    if (!err.empty()) return err;
    if (ticks == MAX_TICKS) return "the descriptor stays readable: the daemon would call tick for ever";
    return {};
}

std::string Life::deactivate() {
    return failure_of([&](std::string& err) { m_library.api().deactivate(err); });
}

std::string Life::deinit() {
    return failure_of([&](std::string& err) { m_library.api().deinit(err); });
}

std::string Life::check_leftovers() {
    std::vector<std::string> left;
    if (const auto methods = m_methods.brought(); !methods.empty())
        left.push_back("methods: " + joined(methods));
    else if (m_methods.components() > 0)
        left.push_back("components without methods: " + std::to_string(m_methods.components()));
    if (const auto displaced = m_methods.displaced(); !displaced.empty())
        left.push_back("the daemon's own methods: " + joined(displaced));
    if (size_t threads = entries("/proc/self/task"); threads > 1)
        left.push_back("threads: " + std::to_string(threads - 1));
    if (size_t now = entries("/proc/self/fd"); now > m_descriptors)
        left.push_back("descriptors: " + std::to_string(now - m_descriptors));
    return left.empty() ? "" : "not given back: " + joined(left);
}

std::string Life::close() {
    return m_library.close();
}

}  // namespace engine_check
