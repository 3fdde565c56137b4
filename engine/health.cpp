#include "health.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine_error.h"
#include "owned_fd.h"

namespace corvo::engine {
namespace {

constexpr uint64_t MIB = 1 << 20;
constexpr uint64_t ANY = UINT64_MAX;

/** Indexed by item_e. */
constexpr struct {
    const char* name;
    const char* unit;
    uint64_t max;
    uint64_t warn;
    uint64_t bad;
} KINDS[Health::ITEMS] = {
    {"flow_table", "percent", 100, 80, 95},
    {"memory", "bytes", ANY, 512 * MIB, 1024 * MIB},
    {"drops", "frames per minute", ANY, 1, 1000},
    {"evictions", "flows per minute", ANY, 1, 1000},
    {"export_failures", "failures since the last success", ANY, 1, 10},
};

enum state_e { OK, WARN, BAD };
constexpr const char* STATES[] = {"ok", "warn", "bad"};

size_t item_named(const std::string& name) {
    std::string known;
    for (size_t i = 0; i < Health::ITEMS; i++) {
        if (name == KINDS[i].name) return i;
        known += known.empty() ? "" : ", ";
        known += quoted(KINDS[i].name);
    }
    throw Error("unknown member " + quoted(name) + ", expecting one of " + known);
}

uint64_t threshold_of(const Json::Value& value, const std::string& name, uint64_t max) {
    if (value.isUInt64() && value.asUInt64() >= 1 && value.asUInt64() <= max) return value.asUInt64();
    throw Error("member '" + name + "' must be a whole number from 1" +
                (max == ANY ? "" : " to " + std::to_string(max)));
}

}  // namespace

void LastMinute::update(uint64_t now_ms, uint64_t total) {
    if (m_slot_end_ms == 0) m_slot_end_ms = now_ms + SLOT_MS;
    // After a long silence, all slots start over.
    for (size_t i = 0; i < SLOTS && now_ms >= m_slot_end_ms; i++, m_slot_end_ms += SLOT_MS) {
        m_slot = (m_slot + 1) % SLOTS;
        m_starts[m_slot] = m_total;
    }
    if (now_ms >= m_slot_end_ms) m_slot_end_ms = now_ms + SLOT_MS;
    m_total = total;
}

Health::Health() {
    for (size_t i = 0; i < ITEMS; i++)
        m_thresholds[i] = {KINDS[i].warn, KINDS[i].bad};
}

Json::Value Health::report(const Values& values, bool verbose) const {
    Json::Value out(Json::objectValue);
    state_e worst = OK;
    for (size_t i = 0; i < ITEMS; i++) {
        state_e state = values[i] >= m_thresholds[i].bad    ? BAD
                        : values[i] >= m_thresholds[i].warn ? WARN
                                                            : OK;
        worst = std::max(worst, state);
        Json::Value& item = out["items"][KINDS[i].name];
        if (!verbose) {
            item = STATES[state];
            continue;
        }
        item["state"] = STATES[state];
        item["value"] = Json::UInt64{values[i]};
        item["unit"] = KINDS[i].unit;
        item["warn"] = Json::UInt64{m_thresholds[i].warn};
        item["bad"] = Json::UInt64{m_thresholds[i].bad};
    }
    out["state"] = STATES[worst];
    return out;
}

Json::Value Health::configuration() const {
    Json::Value out(Json::objectValue);
    for (size_t i = 0; i < ITEMS; i++) {
        Json::Value& item = out[KINDS[i].name];
        item["warn"] = Json::UInt64{m_thresholds[i].warn};
        item["bad"] = Json::UInt64{m_thresholds[i].bad};
    }
    return out;
}

void Health::configure(const Json::Value& conf) {
    if (!conf.isObject()) throw Error("the health configuration must be an object");
    std::array<Thresholds, ITEMS> wanted = m_thresholds;
    for (const std::string& name : conf.getMemberNames()) {
        size_t i = item_named(name);
        if (!conf[name].isObject()) throw Error("member '" + name + "' must be an object");
        for (const std::string& level : conf[name].getMemberNames()) {
            std::string path = name + "." + level;
            if (level != "warn" && level != "bad")
                throw Error("unknown member " + quoted(path) + ", expecting 'warn' or 'bad'");
            uint64_t value = threshold_of(conf[name][level], path, KINDS[i].max);
            (level == "warn" ? wanted[i].warn : wanted[i].bad) = value;
        }
        if (wanted[i].warn > wanted[i].bad) {
            throw Error("member '" + name + ".warn' (" + std::to_string(wanted[i].warn) + ") is above '" +
                        name + ".bad' (" + std::to_string(wanted[i].bad) + ")");
        }
    }
    m_thresholds = wanted;
}

uint64_t resident_memory() {
    OwnedFd file(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    char text[128] = {};
    if (!file || read(file.get(), text, sizeof text - 1) <= 0) return 0;
    unsigned long pages = 0;
    if (std::sscanf(text, "%*s %lu", &pages) != 1) return 0;
    return uint64_t{pages} * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace corvo::engine
