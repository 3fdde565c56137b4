#pragma once
// Writers put packets into a new capture file. A writer lives from `Create` until its destruction, which
// closes the file.

#include <memory>

#include "utils/pcap/pcap_packet.h"
#include "utils/pcap/pcap_reader.h"

namespace corvo {

class CFileWriterBase {
 public:
    CFileWriterBase() = default;
    CFileWriterBase(const CFileWriterBase&) = delete;
    CFileWriterBase& operator=(const CFileWriterBase&) = delete;
    virtual ~CFileWriterBase() = default;

    /** Creates or truncates the file. On failure, prints a line on standard output and returns false. */
    virtual bool Create(const char* path) = 0;
    /** False if the packet wasn't written in full. */
    virtual bool write_packet(CCapPkt* pkt) = 0;

 protected:
    /** Creates the file for any of the writers. Prints a message on failure. */
    static FilePtr create_file(const char* path);
};

class CCapWriterFactory {
 public:
    /** A writer without a file; null for an unknown type. */
    static std::unique_ptr<CFileWriterBase> createWriterInstance(capture_type type);
    /** Null for a null path, an unknown type, or a file that can't be created. */
    static std::unique_ptr<CFileWriterBase> CreateWriter(capture_type type, const char* path);
};

}  // namespace corvo
