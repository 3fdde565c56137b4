#include "flow_rows.h"

#include <arpa/inet.h>

#include <bit>
#include <string_view>

#include "attributes.h"
#include "layers.h"

namespace corvo::engine {
namespace {

using Key = Json::StaticString;

/** Which attribute is reported as which member. */
constexpr struct {
    std::string_view attribute;
    const char* member;
} TOLD[] = {
    {"host", "host"},
    {"dns_name", "host"},
    {"sni", "sni"},
    {"tls_alpn", "alpn"},
    {"ja3c", "ja3c"},
    {"ja3s", "ja3s"},
    {"hassh_client", "hassh_client"},
    {"hassh_server", "hassh_server"},
};

/** Quotes, colon, comma, and a member's share of what surrounds a row. */
constexpr size_t PER_MEMBER = 6;
constexpr size_t LONGEST_NUMBER = 20;

size_t text_bytes(std::string_view text) {
    size_t bytes = text.size();
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80)
            bytes += 5;  // may be written as an escape
        else if (c == '"' || c == '\\')
            bytes += 1;
    }
    return bytes;
}

class JsonRow : public RowMembers {
 public:
    void text(const char* name, std::string_view value) override {
        add(name, Json::Value(value.data(), value.data() + value.size()), text_bytes(value));
    }
    void number(const char* name, uint64_t value) override {
        size_t digits = 1;
        for (uint64_t rest = value; rest > 9; rest /= 10)
            digits++;
        add(name, Json::Value(Json::UInt64{value}), digits);
    }
    void flag(const char* name, bool value) override { add(name, value, 5); }
    void texts(const char* name, const std::vector<std::string_view>& values) override {
        Json::Value list(Json::arrayValue);
        size_t bytes = 2;
        for (const std::string_view value : values) {
            bytes += text_bytes(value) + 3;
            list.append(Json::Value(value.data(), value.data() + value.size()));
        }
        add(name, std::move(list), bytes);
    }
    void seconds(const char* name, double value) { add(name, value, LONGEST_NUMBER); }
    Row take() { return std::move(m_row); }

 private:
    void add(const char* name, Json::Value value, size_t bytes) {
        m_row.json[Key(name)] = std::move(value);
        m_row.bytes += std::string_view(name).size() + bytes + PER_MEMBER;
    }

    Row m_row{Json::Value(Json::objectValue), 2};
};

bool has_ports(uint8_t protocol) {
    return protocol == PROTO_TCP || protocol == PROTO_UDP || protocol == PROTO_UDPLITE;
}

void add_ends(const Flow& flow, RowMembers& row) {
    const FlowKey& key = flow.key;
    const void* addresses[] = {key.lower_address(), key.upper_address()};
    const uint16_t ports[] = {key.lower_port(), key.upper_port()};
    const bool client = flow.client_is_upper;
    row.text("client", address_text(key.version(), addresses[client]));
    row.text("server", address_text(key.version(), addresses[!client]));
    if (has_ports(key.protocol())) {
        row.number("client_port", ports[client]);
        row.number("server_port", ports[!client]);
    }
    row.text("transport", ip_protocol_name(key.protocol()));
    row.number("ns_id", key.ns_id());
    if (key.vlan() != 0) row.number("vlan", key.vlan());
}

void add_traffic(const Flow& flow, const FlowTraffic& traffic, RowMembers& row) {
    row.number("packets", traffic.packets[0] + traffic.packets[1]);
    row.number("bytes", traffic.bytes[0] + traffic.bytes[1]);
    row.number("packets_to_server", traffic.packets[flow.client_is_upper]);
    row.number("bytes_to_server", traffic.bytes[flow.client_is_upper]);
}

void add_verdict(const Flow& flow, const Classifier& classifier, bool guess, RowMembers& row) {
    const Verdict& verdict = flow.verdict;
    const bool known = verdict.cls() != 0 && (guess || !verdict.guessed);
    row.text("protocol", known ? std::string_view(verdict.entry->full) : UNCLASSIFIED);
    row.number("cls", known ? verdict.cls() : 0);
    row.flag("guessed", known && verdict.guessed);
    if (!known) return;
    if (verdict.category != 0) row.text("category", classifier.category_name(verdict.category));
    row.text("confidence", Classifier::confidence_name(verdict.confidence));
}

void add_details(const Flow& flow, RowMembers& row) {
    const auto tell = [&row](std::string_view name, std::string_view value) {
        for (const auto& [attribute, member] : TOLD) {
            if (name == attribute) row.text(member, value);
        }
    };
    ndpi_risk risks = 0;
    if (flow.dissection) {
        std::string attributes;
        read_attributes(*flow.dissection, attributes);
        for_each_attribute(attributes, tell);
        risks = flow.dissection->risk;
    } else if (flow.details) {
        for_each_attribute(flow.details->attributes, tell);
        risks = flow.details->risks;
    }
    if (risks == 0) return;
    std::vector<std::string_view> names;
    for (; risks != 0; risks &= risks - 1)
        names.emplace_back(Classifier::risk_name(static_cast<unsigned>(std::countr_zero(risks))));
    row.texts("risks", names);
}

}  // namespace

std::string address_text(uint8_t version, const void* address) {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(version == 4 ? AF_INET : AF_INET6, address, text, sizeof text);
    return text;
}

void tell_flow(const Flow& flow, const FlowTraffic& traffic, const Classifier& classifier, bool guess,
               RowMembers& row) {
    add_ends(flow, row);
    add_traffic(flow, traffic, row);
    add_verdict(flow, classifier, guess, row);
    add_details(flow, row);
}

Row flow_row(const Flow& flow, const Classifier& classifier, const RowStyle& style) {
    JsonRow row;
    tell_flow(flow, flow.counted(), classifier, style.guess, row);
    if (style.times) {
        const auto seconds = [&](uint64_t time_ms) {
            return static_cast<double>(static_cast<int64_t>(time_ms) + style.realtime_ms) / 1000;
        };
        row.seconds("first_seen", seconds(flow.first_seen_ms));
        row.seconds("last_seen", seconds(flow.last_seen_ms));
    }
    return row.take();
}

}  // namespace corvo::engine
