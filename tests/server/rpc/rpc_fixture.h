#pragma once
// A listener in a scheduler that the test turns by hand, with a handler that answers "re:" and the request.

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "infra/corvo_scheduler.h"
#include "server/rpc/corvo_rpc_server.h"
#include "support/client.h"
#include "support/daemon.h"

namespace corvo {

class RpcFixture : public testing::Test {
 protected:
    template <typename... Address>
    void listen(Address... address) {
        server = std::make_shared<RPCServer>(address..., &sched, [this](const auto& request, auto& response) {
            ++handled;
            response = "re:" + request;
            response.append(padding, 'x');
        });
        server->connect();
        sched.add(server, EVENT_STATE_READ, 0);
    }

    /** Serves until nothing is ready any more; false when that never comes to an end. */
    bool settle() {
        for (int i = 0; i < 2000; ++i) {
            if (!sched.wait(20)) return true;
            sched.step();
        }
        return false;
    }

    Scheduler sched;
    std::shared_ptr<RPCServer> server;
    int handled = 0;
    size_t padding = 0;  ///< added to each reply
};

}  // namespace corvo
