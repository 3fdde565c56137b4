// A URI, and what a valid one promises.

#include <cassert>

#include "fuzz/fuzz_input.h"
#include "utils/uri_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).rest();
    corvo::URIParser uri(text);
    if (!uri.valid()) return 0;
    assert(text.starts_with(uri.protocol() + "://" + uri.server() + ":"));
    assert(uri.port() >= 1 && uri.port() <= 65534);
    assert(uri.validate_protocol() && uri.validate_server() && uri.validate_port());
    return 0;
}
