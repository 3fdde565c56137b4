// In place of ipfix_messages.cpp where libfixbuf is missing.
#include "client/failure.h"
#include "client/flows/ipfix_messages.h"

namespace brumectl::flows {

class IpfixMessages::Library {};

bool has_ipfix() {
    return false;
}

IpfixMessages::IpfixMessages(const IpfixStyle& /*style*/) {
    throw Failure("this brumectl was built without libfixbuf, which makes IPFIX");
}

IpfixMessages::~IpfixMessages() = default;

void IpfixMessages::repeat_templates() {}

std::vector<std::string> IpfixMessages::encode(const std::vector<FlowRecord>& /*records*/) {
    return {};
}

}  // namespace brumectl::flows
