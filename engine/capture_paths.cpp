#include "capture_paths.h"

#include <malloc.h>

#include <algorithm>
#include <cctype>
#include <string_view>

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr size_t MAX_NAME = 64;
constexpr uint64_t TICK_MS = 1000;
/** While there are flows to free. The pauses let other work run. */
constexpr uint64_t WRECK_TICK_MS = 5;
constexpr uint32_t ENTRIES_PER_TICK = 8192;
/** Slow work waits until no capture has been classified for this long. */
constexpr uint64_t QUIET_MS = 1000;
/** Returning memory to the system takes time; worth it from this many flows on. */
constexpr uint32_t WORTH_TRIMMING = 4096;

void check_name(const std::string& dpaddr) {
    std::string_view name = std::string_view(dpaddr).substr(std::string_view(CapturePaths::PREFIX).size());
    const bool good = !name.empty() && name.size() <= MAX_NAME &&
                      std::all_of(name.begin(), name.end(), [](unsigned char c) {
                          return (c < 0x80 && std::isalnum(c)) || c == '.' || c == '_' || c == '-';
                      });
    if (!good)
        throw Error(
            "data path " + quoted(dpaddr) +
            " has no proper name, expecting 1 to 64 letters, digits, '.', '_' and '-' behind 'capture:'");
}

}  // namespace

CapturePaths::Paths::iterator CapturePaths::find_path(const std::string& dpaddr) {
    check_name(dpaddr);
    return std::find_if(m_paths.begin(), m_paths.end(),
                        [&](const auto& path) { return path->name == dpaddr; });
}

NamedPath* CapturePaths::find(const std::string& dpaddr) {
    const auto path = find_path(dpaddr);
    if (path == m_paths.end()) return nullptr;
    m_used_ms = (*path)->used_ms = m_clock();
    return path->get();
}

NamedPath& CapturePaths::open(const std::string& dpaddr, uint64_t instance, unsigned shards) {
    check_name(dpaddr);
    if (m_paths.size() == MAX_PATHS) {
        throw Error(
            std::to_string(MAX_PATHS) +
            " captures are being classified, the most that can be at once; try again when one has ended");
    }
    m_paths.push_back(std::make_unique<NamedPath>(dpaddr, instance, m_classifiers, MAX_FLOWS, shards,
                                                  DataPath::CAPTURE, m_clock));
    m_wants_spare = true;
    m_used_ms = m_paths.back()->used_ms = m_clock();
    return *m_paths.back();
}

void CapturePaths::close(const std::string& dpaddr) {
    const auto path = find_path(dpaddr);
    if (path == m_paths.end()) return;
    m_used_ms = m_clock();
    retire(path);
}

void CapturePaths::close_all() {
    while (!m_paths.empty())
        retire(m_paths.end() - 1);
}

void CapturePaths::retire(Paths::iterator path) {
    m_wants_trim = m_wants_trim || (*path)->data.flow_count() >= WORTH_TRIMMING;
    (*path)->data.retire();
    m_retired.push_back(std::move(*path));
    m_paths.erase(path);
}

uint64_t CapturePaths::tick(uint64_t now_ms) {
    for (size_t i = m_paths.size(); i-- > 0;) {
        m_paths[i]->lists.tick(now_ms);
        if (now_ms - m_paths[i]->used_ms >= UNUSED_MS) retire(m_paths.begin() + static_cast<ptrdiff_t>(i));
    }
    if (!m_retired.empty()) {
        if (m_retired.back()->data.wreck(ENTRIES_PER_TICK)) m_retired.pop_back();
        return WRECK_TICK_MS;
    }
    if (now_ms - m_used_ms < QUIET_MS) return TICK_MS;
    if (std::exchange(m_wants_spare, false)) m_classifiers.restock();
    if (m_paths.empty() && std::exchange(m_wants_trim, false)) malloc_trim(0);
    return TICK_MS;
}

}  // namespace corvo::engine
