// JSON text: our reader beside the library's, and what either has read through our writer and the library's.

#include <json/reader.h>
#include <json/writer.h>

#include <cassert>

#include "fuzz/fuzz_input.h"
#include "infra/corvo_json.h"
#include "infra/corvo_json_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input(data, size).rest();
    Json::Value ours;
    if (corvo::json::PlainReader(text.data(), text.data() + text.size()).read(ours)) {
        Json::Value theirs;
        assert(Json::Reader().parse(text, theirs, /*collectComments=*/false) && ours == theirs);
        assert(ours.getOffsetStart() == theirs.getOffsetStart() &&
               ours.getOffsetLimit() == theirs.getOffsetLimit());
    } else if (!corvo::json::parse(text, ours)) {
        return 0;
    }
    assert(corvo::json::write_line(ours) == Json::FastWriter().write(ours));
    return 0;
}
