#include "workers.h"

#include <algorithm>
#include <bit>
#include <chrono>

#include "engine_error.h"
#include "interfaces.h"
#include "shards.h"

namespace corvo::engine {
namespace {

constexpr auto PATIENCE = std::chrono::seconds(1);
/** Of all backlogs together. What a client pushes at once should fit, so that it needn't wait. */
constexpr size_t BACKLOG_BYTES = 8UL << 20;

size_t backlog_bytes(unsigned workers) {
    return std::max(std::bit_floor(BACKLOG_BYTES / workers), Backlog::LEAST_BYTES);
}

}  // namespace

Workers::Workers(Interfaces& interfaces, Shards& shards) {
    for (unsigned i = 0; i < shards.count(); i++)
        m_workers.push_back(std::make_unique<Worker>("dp-worker-" + std::to_string(i + 1),
                                                     interfaces.worker_lane(i), shards.at(i),
                                                     backlog_bytes(shards.count())));
}

Workers::Pause Workers::pause() {
    Pause out;
    out.reserve(m_workers.size());
    for (const auto& worker : m_workers) {
        out.emplace_back(worker->turn());
        worker->catch_up();
    }
    return out;
}

void Workers::deal(Shards& path, const std::vector<api::pkt_>& pkts) {
    for (const api::pkt_& pkt : pkts) {
        const unsigned shard = path.shard_of(pkt);
        m_workers[shard]->leave(path.at(shard), pkt);
    }
    for (const auto& worker : m_workers)
        worker->see_to_them();
}

std::string Workers::take_problem() {
    for (const auto& worker : m_workers) {
        std::string problem = worker->take_problem();
        if (!problem.empty()) return problem;
    }
    return {};
}

void Workers::end() {
    for (const auto& worker : m_workers)
        worker->ask_to_end();
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    std::string late;
    for (size_t i = 0; i < m_workers.size(); i++)
        if (!m_workers[i]->ends_by(end)) late += (late.empty() ? "" : ", ") + std::to_string(i + 1);
    if (!late.empty()) throw Error("not all workers end within a second, these don't: " + late);
}

}  // namespace corvo::engine
