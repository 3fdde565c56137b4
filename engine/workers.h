#pragma once
// All workers of an active data path, as its calling thread sees them.

#include <brumecpd/engine_api.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "worker.h"

namespace corvo::engine {

class Interfaces;
class Shards;

class Workers {
 public:
    /** Our turn with all live traffic, while it exists. */
    using Pause = std::vector<std::unique_lock<TurnLock>>;

    /**
     * One for each shard, capturing from the lane of the same number. Both must outlive this. Throws Error if
     * one can't be started, and none is then.
     */
    Workers(Interfaces& interfaces, Shards& shards);

    /**
     * Waits until each has ended its turn: a worker that hangs holds up whoever calls this. No packet is
     * waiting for one then, nor afterwards until the next `deal`.
     */
    Pause pause();
    unsigned count() const { return static_cast<unsigned>(m_workers.size()); }
    /**
     * Leaves the packets to them, for a path with a shard for each. Their output fields stay as they are.
     * Throws std::bad_alloc.
     */
    void deal(Shards& path, const std::vector<api::pkt_>& pkts);
    /** During a pause. Empty if there is none. */
    std::string take_problem();
    /** Throws Error if some haven't ended within a second; may be tried again. */
    void end();

 private:
    std::vector<std::unique_ptr<Worker>> m_workers;
};

}  // namespace corvo::engine
