#include "server/rpc/corvo_rpc_transport.h"

#include <utility>

#include "infra/corvo_zip.h"

namespace corvo::rpc {

void RpcRequest::set_text(std::string&& received) {
    std::string unpacked;
    compressed = RpcZip::uncompress(received, unpacked) != 0;
    request = compressed ? std::move(unpacked) : std::move(received);
}

}  // namespace corvo::rpc
