// Compiled, not linked: that would compile the whole core once more.
#include "infra/corvo_scheduler.h"
#include "infra/json/corvo_jsonrpc_v2.h"

corvo::Scheduler& scheduler_of(corvo::Scheduler& scheduler) {
    return scheduler;
}
