#pragma once
// Short conversations in well-known protocols, each sufficient for a traffic classifier to recognise it.
// Hosts have names under example.net and private addresses.

#include <string>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

struct SampleFlow {
    std::string name;      ///< unique, usable as a file name
    std::string protocol;  ///< nDPI's name for it, without the protocols it runs over
    std::vector<Bytes> frames;
};

const std::vector<SampleFlow>& sample_flows();

/** The flow with this name; throws if there is none. */
const SampleFlow& sample_flow(const std::string& name);

/** The frames of all flows, one flow after another. */
std::vector<Bytes> sample_frames();

/** A TLS 1.2 ClientHello record for a server name, and the ServerHello that answers it. */
Bytes tls_client_hello(const std::string& server_name);
Bytes tls_server_hello();

/** The UDP payload of a QUIC version 1 Initial packet for the server "quic.example.net". */
Bytes quic_initial();

}  // namespace test
