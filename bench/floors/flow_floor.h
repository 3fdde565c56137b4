#pragma once
// The least way from a frame to its flow's class: headers, a hash map of flows, nDPI. What floors share.

#include <ndpi/ndpi_api.h>
#include <netinet/in.h>
#include <sys/resource.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace bench {

/** As long as these many packets, a flow without a verdict is looked at; the engine and nDPI's own reader do
 * so. */
constexpr unsigned TCP_PACKETS = 80, OTHER_PACKETS = 24;

struct Headers {
    unsigned l3 = 0, l4 = 0;
    uint8_t version = 0, protocol = 0;
};

inline unsigned be16(const u_char* at) {
    return at[0] << 8U | at[1];
}

inline bool parse(const u_char* frame, unsigned size, Headers& out) {
    if (size < 34) return false;
    unsigned type = be16(frame + 12);
    out.l3 = 14;
    if (type == 0x8100) {
        out.l3 = 18;
        type = be16(frame + 16);
    }
    const u_char* ip = frame + out.l3;
    out.version = type == 0x0800 ? 4 : type == 0x86dd ? 6 : 0;
    if (out.version == 0 || size < out.l3 + (out.version == 4 ? 20U : 40U)) return false;
    out.l4 = out.l3 + (out.version == 4 ? (ip[0] & 15U) * 4 : 40);
    out.protocol = out.version == 4 ? ip[9] : ip[6];
    return size >= out.l4 + 4;
}

class Classifier {
 public:
    /** Frames of flows beyond `max_flows` get no class. */
    explicit Classifier(size_t max_flows = SIZE_MAX)
        : max_flows_(max_flows), ndpi_(ndpi_init_detection_module(ndpi_no_prefs)) {
        NDPI_PROTOCOL_BITMASK all;
        NDPI_BITMASK_SET_ALL(all);
        ndpi_set_protocol_detection_bitmask2(ndpi_, &all);
        ndpi_finalize_initialization(ndpi_);
    }

    ndpi_protocol classify(const u_char* frame, unsigned size, const Headers& at, uint64_t ms) {
        const Key key = key_of(frame, at);
        const auto found = flows_.size() < max_flows_ ? flows_.try_emplace(key).first : flows_.find(key);
        if (found == flows_.end()) return {};
        Flow& flow = found->second;
        ++flow.packets;
        if (flow.done) return flow.is;
        if (!flow.state) flow.state.reset(static_cast<ndpi_flow_struct*>(ndpi_calloc(1, SIZEOF_FLOW_STRUCT)));
        flow.is = ndpi_detection_process_packet(ndpi_, flow.state.get(), frame + at.l3,
                                                static_cast<u_short>(size - at.l3), ms);
        const bool enough = flow.packets > (at.protocol == IPPROTO_TCP ? TCP_PACKETS : OTHER_PACKETS);
        const bool known = flow.is.app_protocol != NDPI_PROTOCOL_UNKNOWN;
        if (!enough && (!known || ndpi_extra_dissection_possible(ndpi_, flow.state.get()) != 0))
            return flow.is;
        uint8_t guessed = 0;
        if (!known) flow.is = ndpi_detection_giveup(ndpi_, flow.state.get(), 1, &guessed);
        flow.done = true;
        flow.state.reset();
        return flow.is;
    }

    std::string name(ndpi_protocol is) {
        char text[64];
        return ndpi_protocol2name(ndpi_, is, text, sizeof text);
    }

 private:
    using Key = std::array<char, 37>;
    struct Hash {
        size_t operator()(const Key& key) const {
            return std::hash<std::string_view>()({key.data(), key.size()});
        }
    };
    struct Free {
        void operator()(ndpi_flow_struct* state) const { ndpi_flow_free(state); }
    };
    struct Flow {
        std::unique_ptr<ndpi_flow_struct, Free> state;
        ndpi_protocol is{};
        unsigned packets = 0;
        bool done = false;
    };

    /** The same for both directions. */
    static Key key_of(const u_char* frame, const Headers& at) {
        Key out{};
        const size_t size = at.version == 4 ? 4 : 16;
        const u_char* from = frame + at.l3 + (at.version == 4 ? 12 : 8);
        char ends[2][18] = {};
        for (size_t end = 0; end < 2; ++end) {
            memcpy(ends[end], from + end * size, size);
            if (at.protocol == IPPROTO_TCP || at.protocol == IPPROTO_UDP)
                memcpy(ends[end] + 16, frame + at.l4 + end * 2, 2);
        }
        const int first = memcmp(ends[0], ends[1], sizeof ends[0]) > 0 ? 1 : 0;
        memcpy(out.data(), ends[first], sizeof ends[0]);
        memcpy(out.data() + 18, ends[1 - first], sizeof ends[0]);
        out[36] = static_cast<char>(at.protocol);
        return out;
    }

    size_t max_flows_;
    ndpi_detection_module_struct* ndpi_;
    std::unordered_map<Key, Flow, Hash> flows_;
};

/** Of this process. */
inline double cpu_ms() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto ms = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
    };
    return ms(used.ru_utime) + ms(used.ru_stime);
}

}  // namespace bench
