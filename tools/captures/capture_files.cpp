#include "tools/captures/capture_files.h"

#include <algorithm>
#include <bit>
#include <fstream>
#include <stdexcept>

#include "utils/pcap/pcap_writer.h"

namespace test {

namespace {

void write_capture(corvo::capture_type type, const std::string& path, const std::vector<Bytes>& frames) {
    auto writer = corvo::CCapWriterFactory::CreateWriter(type, path.c_str());
    for (size_t i = 0; writer && i < frames.size(); i++) {
        corvo::CCapPkt pkt(frames[i].data(), static_cast<unsigned int>(frames[i].size()));
        pkt.time_sec = static_cast<uint32_t>(frame_time_usec(i) / 1000000);
        pkt.time_nsec = static_cast<uint32_t>(frame_time_usec(i) % 1000000 * 1000);
        if (!writer->write_packet(&pkt)) writer.reset();
    }
    if (!writer) throw std::runtime_error("can't write " + path);
}

/** A number in the opposite byte order to this machine's. */
Bytes foreign(int width, uint64_t value) {
    Bytes bytes = ByteWriter().number(width, static_cast<uint32_t>(value));
    if constexpr (std::endian::native == std::endian::big) std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

}  // namespace

void write_pcap(const std::string& path, const std::vector<Bytes>& frames) {
    write_capture(corvo::CAPTURE_LIBPCAP, path, frames);
}

void write_erf(const std::string& path, const std::vector<Bytes>& frames) {
    write_capture(corvo::CAPTURE_ERF, path, frames);
}

void write_swapped_pcap(const std::string& path, const std::vector<Bytes>& frames) {
    ByteWriter content;
    content.bytes(foreign(4, 0xA1B2C3D4)).bytes(foreign(2, 2)).bytes(foreign(2, 4));
    for (uint32_t word : {0, 0, 2000, 1})
        content.bytes(foreign(4, word));
    for (size_t i = 0; i < frames.size(); i++) {
        content.bytes(foreign(4, frame_time_usec(i) / 1000000))
            .bytes(foreign(4, frame_time_usec(i) % 1000000));
        content.bytes(foreign(4, frames[i].size())).bytes(foreign(4, frames[i].size())).bytes(frames[i]);
    }
    const Bytes& bytes = content;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error("can't write " + path);
}

}  // namespace test
