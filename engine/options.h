#pragma once
// What can be set in our engine that no method carries: a file of lines `name = value` beside the library.

#include <cstdint>
#include <string>

namespace corvo::engine {

struct Options {
    uint64_t ring_bytes =
        4UL << 20;       ///< memory for the frames of one interface; see PacketRing for its limits
    std::string sensor;  ///< name of this machine in records; its host name by default
    std::string spool;   ///< folder for records on their way; none if empty
    uint64_t spool_bytes = 256UL << 20;  ///< the most that they may take there
    uint64_t workers = 1;                ///< of the data path, where `activate` doesn't ask for more than one

    /**
     * Reads `libcvcp_u.conf` in the library's folder, or what BRUMECP_ENGINE_CONF names. Only the former may
     * be absent. Throws Error with the file, the line and what is allowed there.
     */
    static Options load();
    /** The same for one file's text; `file` is for messages. */
    static Options parse(const std::string& text, const std::string& file);
};

}  // namespace corvo::engine
