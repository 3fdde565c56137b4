// Base64, the LZ4 container, and messages as a client parses them: arbitrary bytes, and round trips.

#include <cassert>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "infra/corvo_zip.h"
#include "infra/json/corvo_jsonrpc_msg.h"
#include "infra/json/corvo_jsonrpc_v2.h"
#include "utils/base64.h"

namespace {

void base64(const std::string& text) {
    assert(b64_decode(b64_encode(text)) == text);
    const std::string decoded = b64_decode(text);
    std::vector<char> buffer(static_cast<size_t>(b64_dlen(text.c_str())));
    const int size = b64_decode(buffer.data(), text.c_str());
    assert(decoded == std::string(buffer.data(), static_cast<size_t>(size)));

    std::vector<char> encoded(static_cast<size_t>(b64_elen(static_cast<int>(text.size()))));
    const int written = b64_encode(encoded.data(), text.data(), static_cast<int>(text.size()));
    assert(static_cast<size_t>(written) == encoded.size() && b64_encode(text) == encoded.data());
}

/** The plain text of a container; empty if it isn't one. */
std::string unzip(const std::string& text) {
    char* plain = nullptr;
    const int size = corvo_zip_unzip(text.data(), static_cast<unsigned>(text.size()), &plain);
    assert((size > 0) == (plain != nullptr));
    std::string out(plain ? plain : "", plain ? static_cast<size_t>(size) : 0);
    corvo_zip_destroy(plain);
    return out;
}

void lz4(const std::string& text) {
    unzip(text);
    std::string container;
    if (corvo_zip_zip(text, container, /*header=*/true) <= 0) return;
    assert(unzip(container) == text);
}

void message(const std::string& text) {
    const corvo::MsgParser msg(text);
    const bool is_error = msg.kind() == corvo::MsgParser::KIND_RESPONSE_ERROR;
    assert(is_error || msg.error().empty());
    corvo::ReqParser::pretty_json_str(text);
    corvo::is_proper_json_format(msg.root());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).rest();
    base64(text);
    lz4(text);
    message(text);
    return 0;
}
