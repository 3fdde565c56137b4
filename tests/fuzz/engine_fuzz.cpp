// Frames through our engine's data path, with room for few flows. An input is a list of pushes.
//
// A push: a byte whose bits say whether it is extended (1), whether flows are forgotten first (2) and how
// many half minutes after the last push it comes (the upper four bits); a byte for the name space; then
// frames, each preceded by its length in two bytes, until a length of 0.

#include <cassert>

#include "data_path.h"
#include "engine/pushed.h"
#include "fuzz/fuzz_input.h"

namespace {

using corvo::api::pkt_;
using corvo::engine::DataPath;
using test::g_now_ms;

constexpr uint32_t MAX_FLOWS = 4;
constexpr uint64_t HALF_MINUTE_MS = 30000;

void run(DataPath& path, fuzz::Input& input) {
    const uint8_t flags = input.u8();
    g_now_ms += (flags >> 4) * HALF_MINUTE_MS + 1;
    if (flags & 2) path.kill_all_flows();
    const uint16_t ns_id = input.u8();
    test::Pushed push({});
    for (std::string frame; !(frame = input.text(input.u16())).empty();) {
        push.add({frame.begin(), frame.end()}, ns_id);
        push.pkts.back().l3_off = push.pkts.back().l4_off = 0xffff;  // not to be trusted
    }

    const size_t count = push.pkts.size();
    path.push(push.pkts, flags & 1);
    assert(push.pkts.size() == count);
    assert(path.flow_count() <= MAX_FLOWS);
    for (const pkt_& pkt : push.pkts) {
        assert((pkt.cls == 0) == pkt.protocol.empty());
        assert(pkt.error == corvo::api::PKT_OK || pkt.cls == 0);
    }
    path.dump(MAX_FLOWS);
    path.tick();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Creating one costs more than running a thousand inputs, so it is emptied in between instead.
    static corvo::engine::Classifiers classifiers;
    static DataPath path(classifiers, MAX_FLOWS, DataPath::LIVE, test::fake_clock);
    for (fuzz::Input input(data, size); !input.empty();)
        run(path, input);
    path.kill_all_flows();
    path.remove_all_links();
    return 0;
}
