#pragma once
// Small conversations of well-known protocols, each one such that a traffic classifier recognises it. Hosts
// are names below example.net and addresses of private networks.

#include <string>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

struct SampleFlow {
    std::string name;      ///< unique, fit for a file name
    std::string protocol;  ///< what nDPI calls it, without what it runs over
    std::vector<Bytes> frames;
};

const std::vector<SampleFlow>& sample_flows();

/** The flow of that name; throws if there is none. */
const SampleFlow& sample_flow(const std::string& name);

/** The frames of all flows, one flow after the other. */
std::vector<Bytes> sample_frames();

/** A ClientHello record of TLS 1.2 for a server's name, and the ServerHello that answers it. */
Bytes tls_client_hello(const std::string& server_name);
Bytes tls_server_hello();

/** The UDP payload of a QUIC version 1 Initial packet, for the server "quic.example.net". */
Bytes quic_initial();

}  // namespace test
