// An ERF file.

#include "fuzz/capture_readers.h"
#include "fuzz/fuzz_input.h"
#include "utils/pcap/pcap_erf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content = fuzz::Input(data, size).rest();
    fuzz::read_and_write_back<corvo::CErfFileReader, corvo::CErfFileWriter>(content);
    return 0;
}
