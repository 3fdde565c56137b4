#pragma once
// What the fuzz targets of the capture formats have in common.

#include <cassert>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "utils/pcap/pcap_reader.h"
#include "utils/pcap/pcap_writer.h"

namespace fuzz {

inline std::string bytes_of(const corvo::CCapPkt& pkt) {
    return {reinterpret_cast<const char*>(pkt.GetPktBuffer()), pkt.GetPktLen()};
}

/** Reads a file to its end; what was read is written with `Writer`, and has to come back the same. */
template <typename Reader, typename Writer>
void read_and_write_back(const std::string& content) {
    static MemoryFile file;
    static MemoryFile copy;
    file.write(content);
    copy.write("");

    std::vector<std::string> frames;
    corvo::CCapPkt pkt;
    {
        Reader reader;
        Writer writer;
        if (!reader.Create(file.path().c_str(), 0)) return;
        [[maybe_unused]] bool written = writer.Create(copy.path().c_str());
        while (reader.ReadPacket(&pkt)) {
            frames.push_back(bytes_of(pkt));
            written = written && writer.write_packet(&pkt);
        }
        assert(written);
    }

    Reader reader;
    [[maybe_unused]] const bool opened = reader.Create(copy.path().c_str(), 0);
    assert(opened);
    for (const std::string& frame : frames) {
        [[maybe_unused]] const bool more = reader.ReadPacket(&pkt);
        assert(more && bytes_of(pkt) == frame);
    }
    assert(!reader.ReadPacket(&pkt));
}

}  // namespace fuzz
