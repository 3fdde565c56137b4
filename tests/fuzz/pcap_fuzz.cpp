// A pcap file: first byte how often it is read, then the file.

#include "fuzz/capture_readers.h"
#include "fuzz/fuzz_input.h"
#include "utils/pcap/pcap_libpcap.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzz::MemoryFile file;
    fuzz::Input input(data, size);
    const int loop = input.u8() % 64;
    const std::string content = input.rest();
    fuzz::read_and_write_back<corvo::LibPCapReader, corvo::LibPCapWriter>(content);

    file.write(content);
    corvo::CCapPkt pkt;
    corvo::LibPCapReader reader;
    if (!reader.Create(file.path().c_str(), loop)) return 0;
    reader.readNumOfPackets(&pkt);
    while (reader.ReadPacket(&pkt))
        pkt.parse();
    return 0;
}
