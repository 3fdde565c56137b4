#pragma once
// Records as IPFIX messages (RFC 7011), with what names their applications (RFC 6759). One object is one
// transport session: its sequence numbers begin at 0.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/flows/flow_record.h"

namespace brumectl::flows {

/** Whether this program was built with what makes the messages. Without it, they can't be made. */
bool has_ipfix();

class IpfixMessages {
 public:
    /** `engine_id` is the registered number of who gives the applications their numbers. Throws Failure. */
    IpfixMessages(uint16_t max_bytes, uint8_t engine_id);
    IpfixMessages(const IpfixMessages&) = delete;
    IpfixMessages& operator=(const IpfixMessages&) = delete;
    ~IpfixMessages();

    /** Begins the next message with all templates and names again: for a receiver that may have missed them.
     */
    void repeat_templates();
    /** The messages for these records. An application's name comes before its first record. Throws Failure.
     */
    std::vector<std::string> encode(const std::vector<FlowRecord>& records);

 private:
    class Library;
    std::unique_ptr<Library> m_library;
};

}  // namespace brumectl::flows
