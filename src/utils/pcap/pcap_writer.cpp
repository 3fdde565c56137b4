#include "utils/pcap/pcap_writer.h"

#include "utils/pcap/pcap_erf.h"
#include "utils/pcap/pcap_libpcap.h"

namespace corvo {

FilePtr CFileWriterBase::create_file(const char* path) {
    FilePtr file = path ? open_to_write(path) : nullptr;
    if (!file) printf(" ERROR create file ");
    return file;
}

std::unique_ptr<CFileWriterBase> CCapWriterFactory::createWriterInstance(capture_type type) {
    switch (type) {
        case CAPTURE_LIBPCAP:
            return std::make_unique<LibPCapWriter>();
        case CAPTURE_ERF:
            return std::make_unique<CErfFileWriter>();
    }
    return nullptr;
}

std::unique_ptr<CFileWriterBase> CCapWriterFactory::CreateWriter(capture_type type, const char* path) {
    if (!path) return nullptr;
    auto writer = createWriterInstance(type);
    if (!writer || !writer->Create(path)) return nullptr;
    return writer;
}

}  // namespace corvo
