#include "client/flows/ipfix_messages.h"

#include <fixbuf/public.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <utility>

#include "client/failure.h"

namespace brumectl::flows {

namespace {

constexpr uint16_t V4_TEMPLATE = 256, V6_TEMPLATE = 257, NAME_TEMPLATE = 258;
/** Flags of the templates' elements: which of the templates they belong to. */
constexpr uint32_t OF_V4 = 1, OF_V6 = 2, OF_NAME = 4, IN_MEMORY = 8;
constexpr size_t LONGEST_TEXT = 255;
/** No TLS server name is registered with IANA; this one is with the enterprise 35632, and known to
 * collectors. */
constexpr uint32_t NTOP = 35632;
constexpr uint16_t NTOP_SERVER_NAME = 188;
constexpr uint8_t INITIATOR = 1;
/** Of the texts that name an application. Their lengths don't vary, as some collectors can't read them then.
 */
constexpr uint16_t NAME_BYTES = 32, DESCRIPTION_BYTES = 64;

/** As the templates describe it. Nothing may be between two members. */
struct Record {
    uint64_t start_ms, end_ms;
    uint64_t bytes, packets, reverse_bytes, reverse_packets;
    uint8_t application[4];
    uint16_t client_port, server_port;
    uint8_t protocol, end_reason, direction, padding[5];
};
struct Texts {
    fbVarfield_t application_name, http_host, server_name;
};
template <size_t ADDRESS_BYTES>
struct FlowOf {
    Record record;
    uint8_t client[ADDRESS_BYTES], server[ADDRESS_BYTES];
    Texts texts;
};
struct Name {
    uint8_t scope[4], application[4];
    char name[NAME_BYTES], description[DESCRIPTION_BYTES];
};
static_assert(sizeof(Record) == 64 && offsetof(FlowOf<4>, texts) == 72 && offsetof(FlowOf<16>, texts) == 96);
static_assert(sizeof(Name) == 8 + NAME_BYTES + DESCRIPTION_BYTES);

constexpr uint32_t OF_FLOWS = 0;

/** The library takes names that it doesn't change as plain `char*`. */
fbInfoElementSpec_t element(const char* name, uint16_t bytes, uint32_t flags = OF_FLOWS) {
    return {const_cast<char*>(name), bytes, flags};
}

std::vector<fbInfoElementSpec_t> flow_elements() {
    return {element("flowStartMilliseconds", 8),
            element("flowEndMilliseconds", 8),
            element("octetDeltaCount", 8),
            element("packetDeltaCount", 8),
            element("reverseOctetDeltaCount", 8),
            element("reversePacketDeltaCount", 8),
            element("applicationId", 4),
            element("sourceTransportPort", 2),
            element("destinationTransportPort", 2),
            element("protocolIdentifier", 1),
            element("flowEndReason", 1),
            element("biflowDirection", 1),
            element("paddingOctets", 5, IN_MEMORY),
            element("sourceIPv4Address", 4, OF_V4),
            element("destinationIPv4Address", 4, OF_V4),
            element("sourceIPv6Address", 16, OF_V6),
            element("destinationIPv6Address", 16, OF_V6),
            element("applicationName", FB_IE_VARLEN),
            element("httpRequestHost", FB_IE_VARLEN),
            element("tlsServerName", FB_IE_VARLEN),
            FB_IESPEC_NULL};
}

std::vector<fbInfoElementSpec_t> name_elements() {
    // The scope, and again for collectors that don't look into scopes, such as nfdump.
    return {element("applicationId", 4), element("applicationId", 4), element("applicationName", NAME_BYTES),
            element("applicationDescription", DESCRIPTION_BYTES), FB_IESPEC_NULL};
}

fbVarfield_t text_field(const std::string& text) {
    // The library reads it only.
    return {std::min(text.size(), LONGEST_TEXT), reinterpret_cast<uint8_t*>(const_cast<char*>(text.data()))};
}

/** What names the application itself: "Google" of "TLS.Google". */
std::string application_name(const std::string& protocol) {
    const size_t dot = protocol.find('.');
    return dot == std::string::npos ? protocol : protocol.substr(dot + 1);
}

/** An error of the library, and its end. */
class LibraryError {
 public:
    LibraryError() = default;
    LibraryError(const LibraryError&) = delete;
    LibraryError& operator=(const LibraryError&) = delete;
    ~LibraryError() { g_clear_error(&m_error); }

    GError** get() { return &m_error; }
    bool is_full() const { return g_error_matches(m_error, FB_ERROR_DOMAIN, FB_ERROR_EOM) != FALSE; }
    [[noreturn]] void fail() const {
        throw Failure(std::string("IPFIX messages can't be made: ") +
                      (m_error != nullptr ? m_error->message : "no reason given"));
    }

 private:
    GError* m_error = nullptr;
};

struct ModelEnd {
    void operator()(fbInfoModel_t* model) const { fbInfoModelFree(model); }
};
struct SessionEnd {
    void operator()(fbSession_t* session) const { fbSessionFree(session); }
};
/** Frees the session and the exporter, too. */
struct BufferEnd {
    void operator()(fBuf_t* buffer) const { fBufFree(buffer); }
};

}  // namespace

class IpfixMessages::Library {
 public:
    explicit Library(const IpfixStyle& style)
        : m_style(style), m_bytes(style.max_bytes), m_model(fbInfoModelAlloc()) {
        fbInfoElement_t server_name = FB_IE_INIT_FULL("tlsServerName", NTOP, NTOP_SERVER_NAME, FB_IE_VARLEN,
                                                      FB_IE_F_NONE, 0, 0, FB_STRING, nullptr);
        fbInfoModelAddElement(m_model.get(), &server_name);
        // Templates that are added later would be written at once, and not only when `encode` does it.
        std::unique_ptr<fbSession_t, SessionEnd> session(fbSessionAlloc(m_model.get()));
        m_session = session.get();
        add_template(V4_TEMPLATE, flow_elements(), OF_V4);
        add_template(V6_TEMPLATE, flow_elements(), OF_V6);
        add_template(NAME_TEMPLATE, name_elements(), OF_NAME);
        m_exporter = fbExporterAllocBuffer(m_bytes.data(), style.max_bytes);
        m_buffer.reset(fBufAllocForExport(session.release(), m_exporter));
        fBufSetAutomaticMode(m_buffer.get(), FALSE);
    }

    void repeat_templates() { m_is_due = true; }

    std::vector<std::string> encode(const std::vector<FlowRecord>& records) {
        if (m_is_due) {
            attempt([this](GError** error) { return fbSessionExportTemplates(m_session, error); });
            for (auto& [application, name] : m_names)
                put_name(application, name);
        }
        m_is_due = false;
        for (const FlowRecord& record : records) {
            learn_name(record);
            if (record.family == AF_INET)
                put_flow<4>(record, V4_TEMPLATE);
            else
                put_flow<16>(record, V6_TEMPLATE);
        }
        emit();
        return std::exchange(m_messages, {});
    }

 private:
    struct AppName {
        std::string name;
        std::string category;
    };

    void add_template(uint16_t id, std::vector<fbInfoElementSpec_t> elements, uint32_t flags) {
        for (const bool in_memory : {true, false}) {
            LibraryError error;
            fbTemplate_t* one = fbTemplateAlloc(m_model.get());
            if (fbTemplateAppendSpecArray(one, elements.data(), flags | (in_memory ? IN_MEMORY : 0),
                                          error.get()) == FALSE)
                error.fail();
            if (flags == OF_NAME) fbTemplateSetOptionsScope(one, 1);
            if (fbSessionAddTemplate(m_session, in_memory ? TRUE : FALSE, id, one, error.get()) == 0)
                error.fail();
        }
    }

    /** What doesn't fit into the message goes into the next one. */
    template <typename Work>
    void attempt(Work work) {
        for (bool again = false;; again = true) {
            LibraryError error;
            if (work(error.get()) != FALSE) {
                m_has_content = true;
                return;
            }
            if (again || !error.is_full()) error.fail();
            emit();
        }
    }

    template <typename Content>
    void put(uint16_t id, Content& content) {
        attempt([&](GError** error) {
            return fBufSetInternalTemplate(m_buffer.get(), id, error) != FALSE &&
                   fBufSetExportTemplate(m_buffer.get(), id, error) != FALSE &&
                   fBufAppend(m_buffer.get(), reinterpret_cast<uint8_t*>(&content), sizeof(content), error) !=
                       FALSE;
        });
    }

    void set_application(uint8_t (&out)[4], uint32_t application) const {
        out[0] = m_style.engine_id;
        for (unsigned i = 1; i < 4; ++i)
            out[i] = static_cast<uint8_t>(application >> (8 * (3 - i)));
    }

    void learn_name(const FlowRecord& record) {
        const auto [known, is_new] =
            m_names.try_emplace(record.application, AppName{application_name(record.name), record.category});
        if (is_new) put_name(known->first, known->second);
    }

    void put_name(uint32_t application, const AppName& app) {
        Name out = {};
        set_application(out.scope, application);
        set_application(out.application, application);
        if (m_style.for_nfdump) std::reverse(std::begin(out.application), std::end(out.application));
        app.name.copy(out.name, NAME_BYTES);
        app.category.copy(out.description, DESCRIPTION_BYTES);
        put(NAME_TEMPLATE, out);
    }

    template <size_t ADDRESS_BYTES>
    void put_flow(const FlowRecord& flow, uint16_t id) {
        FlowOf<ADDRESS_BYTES> out = {};
        out.record = {.start_ms = flow.start_ms,
                      .end_ms = flow.end_ms,
                      .bytes = flow.to_server.bytes,
                      .packets = flow.to_server.packets,
                      .reverse_bytes = flow.to_client.bytes,
                      .reverse_packets = flow.to_client.packets,
                      .application = {},
                      .client_port = flow.client_port,
                      .server_port = flow.server_port,
                      .protocol = flow.protocol,
                      .end_reason = flow.end,
                      .direction = INITIATOR,
                      .padding = {}};
        set_application(out.record.application, flow.application);
        set_address(out.client, flow.client);
        set_address(out.server, flow.server);
        out.texts = {text_field(flow.name), text_field(flow.http_host), text_field(flow.server_name)};
        put(id, out);
    }

    /** IPv4 is a number for the library, which it turns into the order of the network. */
    template <size_t BYTES>
    static void set_address(uint8_t (&out)[BYTES], const std::array<uint8_t, 16>& address) {
        uint32_t v4 = 0;
        for (size_t i = 0; i < 4; ++i)
            v4 = v4 << 8 | address[i];
        if constexpr (BYTES == 4)
            std::memcpy(out, &v4, BYTES);
        else
            std::memcpy(out, address.data(), BYTES);
    }

    void emit() {
        if (!m_has_content) return;
        m_has_content = false;
        LibraryError error;
        if (fBufEmit(m_buffer.get(), error.get()) == FALSE) error.fail();
        const size_t size = fbExporterGetMsgLen(m_exporter);
        m_messages.emplace_back(reinterpret_cast<const char*>(m_bytes.data()), size);
    }

    const IpfixStyle m_style;
    std::vector<uint8_t> m_bytes;  ///< the message that is being written
    std::unique_ptr<fbInfoModel_t, ModelEnd> m_model;
    std::unique_ptr<fBuf_t, BufferEnd> m_buffer;
    fbSession_t* m_session = nullptr;    ///< the buffer's
    fbExporter_t* m_exporter = nullptr;  ///< likewise
    bool m_is_due = true;                ///< templates and names come next
    bool m_has_content = false;          ///< of the message that is being written
    std::map<uint32_t, AppName> m_names;
    std::vector<std::string> m_messages;
};

bool has_ipfix() {
    return true;
}

IpfixMessages::IpfixMessages(const IpfixStyle& style) : m_library(std::make_unique<Library>(style)) {}

IpfixMessages::~IpfixMessages() = default;

void IpfixMessages::repeat_templates() {
    m_library->repeat_templates();
}

std::vector<std::string> IpfixMessages::encode(const std::vector<FlowRecord>& records) {
    return m_library->encode(records);
}

}  // namespace brumectl::flows
