// A capture file, read by each format's reader, written and read back. First byte: how often the pcap reader
// loops.

#include <sys/mman.h>
#include <unistd.h>

#include <cassert>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "utils/pcap/pcap_erf.h"
#include "utils/pcap/pcap_libpcap.h"
#include "utils/unique_fd.h"

namespace {

/** A file in memory. Each time it is opened, reading starts at its front. */
class MemoryFile {
 public:
    void write(const std::string& content) {
        [[maybe_unused]] const int rc = ftruncate(m_fd.get(), 0);
        [[maybe_unused]] const ssize_t written = pwrite(m_fd.get(), content.data(), content.size(), 0);
        assert(rc == 0 && written == static_cast<ssize_t>(content.size()));
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd.get()); }

 private:
    corvo::UniqueFd m_fd{memfd_create("fuzz", MFD_CLOEXEC)};
};

template <typename Reader>
std::vector<std::string> frames_of(Reader& reader) {
    std::vector<std::string> frames;
    corvo::CCapPkt pkt;
    for (; reader.ReadPacket(&pkt); pkt.parse())
        frames.emplace_back(reinterpret_cast<const char*>(pkt.GetPktBuffer()), pkt.GetPktLen());
    return frames;
}

/** Frames that are read from a file and written with `Writer` must read back the same. */
template <typename Reader, typename Writer>
void read_and_write_back(const MemoryFile& file) {
    static MemoryFile copy;
    copy.write("");
    Reader reader, again;
    if (!reader.Create(file.path().c_str(), 0)) return;
    const std::vector<std::string> frames = frames_of(reader);
    {
        Writer writer;
        [[maybe_unused]] bool written = writer.Create(copy.path().c_str());
        for (const std::string& frame : frames) {
            corvo::CCapPkt pkt(reinterpret_cast<const unsigned char*>(frame.data()),
                               static_cast<unsigned>(frame.size()));
            written = written && writer.write_packet(&pkt);
        }
        assert(written);
    }
    [[maybe_unused]] const bool opened = again.Create(copy.path().c_str(), 0);
    assert(opened && frames_of(again) == frames);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static MemoryFile file;
    fuzz::Input input(data, size);
    const int loop = input.u8() % 64;
    file.write(input.rest());
    read_and_write_back<corvo::LibPCapReader, corvo::LibPCapWriter>(file);
    read_and_write_back<corvo::CErfFileReader, corvo::CErfFileWriter>(file);
    corvo::CCapPkt pkt;
    corvo::LibPCapReader looping;
    if (!looping.Create(file.path().c_str(), loop)) return 0;
    looping.readNumOfPackets(&pkt);
    frames_of(looping);
    return 0;
}
