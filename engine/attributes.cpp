#include "attributes.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace corvo::engine {
namespace {

constexpr size_t MAX_TEXT = 256;

/** A text member of a dissection; null or empty if nDPI found nothing. */
struct Field {
    const char* name;
    const char* (*text)(const ndpi_flow_struct&);
};
using F = const ndpi_flow_struct&;

constexpr Field HTTP_FIELDS[] = {
    {"url", [](F f) -> const char* { return f.http.url; }},
    {"user_agent", [](F f) -> const char* { return f.http.user_agent; }},
    {"content_type", [](F f) -> const char* { return f.http.content_type; }},
};
constexpr Field TLS_FIELDS[] = {
    {"tls_alpn", [](F f) -> const char* { return f.protos.tls_quic.alpn; }},
    {"tls_versions", [](F f) -> const char* { return f.protos.tls_quic.tls_supported_versions; }},
    {"tls_names", [](F f) -> const char* { return f.protos.tls_quic.server_names; }},
    {"tls_issuer", [](F f) -> const char* { return f.protos.tls_quic.issuerDN; }},
    {"tls_subject", [](F f) -> const char* { return f.protos.tls_quic.subjectDN; }},
    {"ja3c", [](F f) -> const char* { return f.protos.tls_quic.ja3_client; }},
    {"ja3s", [](F f) -> const char* { return f.protos.tls_quic.ja3_server; }},
};
constexpr Field SSH_FIELDS[] = {
    {"ssh_client", [](F f) -> const char* { return f.protos.ssh.client_signature; }},
    {"ssh_server", [](F f) -> const char* { return f.protos.ssh.server_signature; }},
    {"hassh_client", [](F f) -> const char* { return f.protos.ssh.hassh_client; }},
    {"hassh_server", [](F f) -> const char* { return f.protos.ssh.hassh_server; }},
};
constexpr Field DHCP_FIELDS[] = {
    {"dhcp_fingerprint", [](F f) -> const char* { return f.protos.dhcp.fingerprint; }},
    {"dhcp_class", [](F f) -> const char* { return f.protos.dhcp.class_ident; }},
};

/**
 * Which member of nDPI's protocol union is in use, and what the flow's host name then stands for. Only the
 * protocols in nDPI's own stack decide this: reading any other member would follow invalid pointers.
 */
struct Family {
    uint16_t protocol;
    const char* host_name;
    std::span<const Field> fields;
};
const Family FAMILIES[] = {
    {NDPI_PROTOCOL_TLS, "sni", TLS_FIELDS},        {NDPI_PROTOCOL_QUIC, "sni", TLS_FIELDS},
    {NDPI_PROTOCOL_DTLS, "sni", TLS_FIELDS},       {NDPI_PROTOCOL_MAIL_SMTPS, "sni", TLS_FIELDS},
    {NDPI_PROTOCOL_MAIL_IMAPS, "sni", TLS_FIELDS}, {NDPI_PROTOCOL_MAIL_POPS, "sni", TLS_FIELDS},
    {NDPI_PROTOCOL_DNS, "dns_name", {}},           {NDPI_PROTOCOL_MDNS, "dns_name", {}},
    {NDPI_PROTOCOL_LLMNR, "dns_name", {}},         {NDPI_PROTOCOL_SSH, "host", SSH_FIELDS},
    {NDPI_PROTOCOL_DHCP, "host", DHCP_FIELDS},
};

bool in_stack(const ndpi_flow_struct& dissection, uint16_t protocol) {
    const auto& stack = dissection.detected_protocol_stack;
    return stack[0] == protocol || stack[1] == protocol;
}

void append_attribute(const char* name, std::string_view value, std::string& out) {
    if (value.empty()) return;
    out.append(name).append(1, '=');
    append_clean(value, out);
    out += '\n';
}

void append_fields(std::span<const Field> fields, F dissection, std::string& out) {
    for (const Field& field : fields) {
        const char* text = field.text(dissection);
        if (text) append_attribute(field.name, text, out);
    }
}

/** Length of the leading run of printable ASCII. */
size_t plain_length(std::string_view text) {
    return static_cast<size_t>(
        std::find_if(text.begin(), text.end(), [](char c) { return c < 0x20 || c > 0x7e; }) - text.begin());
}

/** Length of the UTF-8 character at the start of a non-empty text; 0 if it isn't valid UTF-8. */
size_t utf8_length(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned first = byte(0);
    if (first < 0x80) return 1;
    size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    // Overlong encodings, surrogates, and anything above the last code point.
    bool forbidden = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
                     (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f);
    return forbidden ? 0 : length;
}

}  // namespace

void append_clean(std::string_view text, std::string& out) {
    const size_t plain = std::min(plain_length(text), MAX_TEXT);
    out.append(text.substr(0, plain));
    for (size_t at = plain; at < text.size();) {
        size_t length = utf8_length(text.substr(at));
        if (at + std::max<size_t>(length, 1) > MAX_TEXT) return;
        auto first = static_cast<unsigned char>(text[at]);
        // U+0080 to U+009F are control characters too.
        bool control = first < 0x20 || first == 0x7f ||
                       (first == 0xc2 && length == 2 && static_cast<unsigned char>(text[at + 1]) < 0xa0);
        if (length == 0 || control)
            out += '?';
        else
            out.append(text.substr(at, length));
        at += std::max<size_t>(length, 1);
    }
}

void read_attributes(const ndpi_flow_struct& dissection, std::string& out) {
    out.clear();
    const char* host_name = "host";
    std::span<const Field> fields;
    for (const Family& family : FAMILIES) {
        if (!in_stack(dissection, family.protocol)) continue;
        host_name = family.host_name;
        fields = family.fields;
        break;
    }
    const char* host = dissection.host_server_name;
    append_attribute(host_name, {host, strnlen(host, sizeof dissection.host_server_name)}, out);
    append_fields(HTTP_FIELDS, dissection, out);
    append_fields(fields, dissection, out);
}

}  // namespace corvo::engine
