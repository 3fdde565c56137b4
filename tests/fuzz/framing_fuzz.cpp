// TCP framing in slices of any size: a connection's worker reads a request in pieces and sends a reply that
// the socket can't take at once.
//
// First byte: how often the reply repeats the request. Then slices, each a length byte and as many bytes; a
// length of 0 means that the peer shuts down its side.

#include <sys/socket.h>

#include <cassert>
#include <memory>

#include "fuzz/fuzz_input.h"
#include "server/rpc/corvo_rpc_transport_tcp.h"
#include "server/rpc/corvo_rpc_worker.h"

namespace {

using corvo::EventRC;
using corvo::UniqueFd;

/** One end of a socket pair in place of an accepted connection. */
struct PairTransport : corvo::rpc::RpcTransportTCP {
    explicit PairTransport(int fd) : RpcTransportTCP("127.0.0.1", 0) { m_fd = fd; }
};

struct Pair {
    Pair() {
        int fds[2];
        [[maybe_unused]] const int rc =
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds);
        assert(rc == 0);
        ours = UniqueFd(fds[0]);
        theirs = UniqueFd(fds[1]);
        const int small = 4096;  // so that replies go out in pieces
        setsockopt(ours.get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
    }
    UniqueFd ours;
    UniqueFd theirs;
};

std::string drain(int fd) {
    std::string out;
    char chunk[4096];
    for (ssize_t len; (len = recv(fd, chunk, sizeof(chunk), 0)) > 0;)
        out.append(chunk, static_cast<size_t>(len));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    const size_t repeats = input.u8();
    Pair pair;
    std::string served;
    std::string expected;
    corvo::RPCWorkerTCP worker(std::make_unique<PairTransport>(pair.ours.get()),
                               [&](const std::string& request, std::string& response) {
                                   assert(served.empty());
                                   served = request;
                                   for (size_t i = 0; i <= repeats; ++i)
                                       response += request;
                                   expected = response.ends_with('\n') ? response : response + '\n';
                               });

    std::string sent;
    bool at_work = true;
    while (at_work && served.empty() && !input.empty()) {
        const uint8_t count = input.u8();
        const std::string slice = input.text(count);
        if (slice.empty()) shutdown(pair.theirs.get(), SHUT_WR);
        sent += slice;
        [[maybe_unused]] const ssize_t written =
            send(pair.theirs.get(), slice.data(), slice.size(), MSG_NOSIGNAL);
        assert(written == static_cast<ssize_t>(slice.size()) || slice.empty());
        at_work = worker.do_work(corvo::EVENT_EXPIRE_READY).action == EventRC::ACTION_REARM;
        assert(served.empty() == (sent.find('\n') == std::string::npos));
        assert(at_work || !served.empty() || slice.empty());
    }
    if (served.empty()) return 0;

    assert(served == sent);
    std::string received = drain(pair.theirs.get());
    for (; at_work; received += drain(pair.theirs.get()))
        at_work = worker.do_work(corvo::EVENT_EXPIRE_READY).action == EventRC::ACTION_REARM;
    assert(received == expected);
    return 0;
}
