#pragma once
// Records as IPFIX messages (RFC 7011), with what names their applications (RFC 6759). One object is one
// transport session: its sequence numbers begin at 0.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/flows/flow_record.h"

namespace brumectl::flows {

struct IpfixStyle {
    uint16_t max_bytes = 1400;
    /** The registered number of who gives the applications their numbers. */
    uint8_t engine_id = 0;
    /**
     * Up to version 1.7.1, nfdump looks for the name of an application whose number's bytes are the other way
     * round. True: names have that number as well, beside their right one.
     */
    bool for_nfdump = false;

    bool operator==(const IpfixStyle&) const = default;
};

/** Whether this program was built with what makes the messages. Without it, they can't be made. */
bool has_ipfix();

class IpfixMessages {
 public:
    /** Throws Failure. */
    explicit IpfixMessages(const IpfixStyle& style);
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
