// Our JSON reader and writer, compared with the library's: a client must not be able to tell which of them
// was used. An input is a list of texts, separated by 0x1e.

#include <json/reader.h>
#include <json/writer.h>

#include <cassert>

#include "fuzz/fuzz_input.h"
#include "infra/json/corvo_json.h"
#include "infra/json/corvo_json_reader.h"

namespace {

/** The same type, content and offsets, all the way down. */
bool same(const Json::Value& a, const Json::Value& b) {
    if (a.type() != b.type() || a.getOffsetStart() != b.getOffsetStart() ||
        a.getOffsetLimit() != b.getOffsetLimit())
        return false;
    if (!a.isArray() && !a.isObject()) return a == b;
    if (a.size() != b.size() || (a.isObject() && a.getMemberNames() != b.getMemberNames())) return false;
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j)
        if (!same(*i, *j)) return false;
    return true;
}

void compare(const std::string& text) {
    Json::Value ours, plain, theirs;
    std::string error, their_error = "* Values are nested too deeply.\n";
    Json::Reader reader;
    bool valid = false;
    try {
        valid = reader.parse(text, theirs, /*collectComments=*/false);
        their_error = reader.getFormattedErrorMessages();
    } catch (const Json::Exception&) {
    }
    [[maybe_unused]] const bool parsed = corvo::json::parse(text, ours, &error);
    assert(parsed == valid && (valid ? same(ours, theirs) : error == their_error));
    if (corvo::json::PlainReader(text.data(), text.data() + text.size()).read(plain))
        assert(valid && same(plain, theirs));
    if (valid) assert(corvo::json::write_line(ours) == Json::FastWriter().write(ours));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    do
        compare(input.until(0x1e));
    while (!input.empty());
    return 0;
}
