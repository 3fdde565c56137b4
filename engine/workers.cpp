#include "workers.h"

#include <chrono>

#include "engine_error.h"
#include "interfaces.h"
#include "shards.h"

namespace corvo::engine {
namespace {

constexpr auto PATIENCE = std::chrono::seconds(1);

}  // namespace

Workers::Workers(Interfaces& interfaces, Shards& shards) {
    for (unsigned i = 0; i < shards.count(); i++)
        m_workers.push_back(std::make_unique<Worker>("dp-worker-" + std::to_string(i + 1),
                                                     interfaces.worker_lane(i), shards.at(i)));
}

Workers::Pause Workers::pause() {
    Pause out;
    out.reserve(m_workers.size());
    for (const auto& worker : m_workers)
        out.emplace_back(worker->turn());
    return out;
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
