#include "http_sink.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "curl_guard.h"
#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr long CONNECT_TIMEOUT_MS = 5000;
/** By payload. Records may be many, and the way to their receiver narrow. */
struct Kind {
    const char* content_type;
    long timeout_ms;
};
constexpr Kind SAMPLE = {"Content-Type: application/json", 10000};
constexpr Kind RECORDS = {"Content-Type: application/x-ndjson", 60000};

constexpr size_t MAX_SERVER = 253;
constexpr size_t MAX_PATH = 2048;

bool is_ipv6(const std::string& server) {
    in6_addr ignored;
    return inet_pton(AF_INET6, server.c_str(), &ignored) == 1;
}

/** Rejects anything that could become another part of the URL. */
bool is_server(const std::string& text) {
    auto allowed = [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '.' || c == '_'; };
    return !text.empty() && text.size() <= MAX_SERVER &&
           (is_ipv6(text) || std::all_of(text.begin(), text.end(), allowed));
}

bool is_path(const std::string& text) {
    return text.size() <= MAX_PATH && std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return c > ' ' && c < 0x7f && c != '#';
           });
}

std::string url_of(const api::ExporterConfig& config) {
    if (!is_server(config.server))
        throw Error("the exporter's server is " + quoted(config.server) + ", expecting a name or an address");
    if (config.port == 0) throw Error("the exporter's port is 0, expecting 1 to 65535");
    if (!is_path(config.path))
        throw Error("the exporter's path is " + quoted(config.path) +
                    ", expecting printable ASCII without '#'");
    std::string host = is_ipv6(config.server) ? "[" + config.server + "]" : config.server;
    return (config.type == api::EXPORTER_HTTPS ? "https://" : "http://") + host + ":" +
           std::to_string(config.port) + (config.path.empty() || config.path[0] != '/' ? "/" : "") +
           config.path;
}

/** The response body is of no use. */
size_t discard(char*, size_t size, size_t count, void*) {
    return size * count;
}

}  // namespace

HttpSink::Global::Global() {
    keep_curl_library();
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw Error("libcurl can't be initialised");
}

HttpSink::HttpSink(const api::ExporterConfig& config, Payload payload)
    : m_config(config), m_url(url_of(config)) {
    const Kind& kind = payload == Payload::RECORDS ? RECORDS : SAMPLE;
    CurlGuard guard;
    m_multi.reset(curl_multi_init());
    m_headers.reset(curl_slist_append(nullptr, kind.content_type));
    m_easy.reset(curl_easy_init());
    if (!m_multi || !m_headers || !m_easy || !curl_slist_append(m_headers.get(), "Expect:"))
        throw Error("libcurl can't be initialised");
    set_up_request(kind.timeout_ms);
}

// CURLOPT_NOSIGNAL stays off: curl blocks SIGPIPE while it works, and the timeouts of this libcurl need
// no signal.
void HttpSink::set_up_request(long timeout_ms) {
    CURL* easy = m_easy.get();
    bool ok = true;
    auto set = [&](auto option, auto value) { ok = ok && curl_easy_setopt(easy, option, value) == CURLE_OK; };
    set(CURLOPT_URL, m_url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_PROXY, "");  // ignore proxies from the environment
    set(CURLOPT_HTTPHEADER, m_headers.get());
    set(CURLOPT_USERAGENT, "brumecpd");
    set(CURLOPT_WRITEFUNCTION, discard);
    set(CURLOPT_ERRORBUFFER, m_curl_error);
    set(CURLOPT_OPENSOCKETFUNCTION, open_curl_socket);
    set(CURLOPT_CONNECTTIMEOUT_MS, CONNECT_TIMEOUT_MS);
    set(CURLOPT_TIMEOUT_MS, timeout_ms);
    // In addition to the system's authorities. Programs that use OpenSSL honour this variable.
    const char* authorities = std::getenv("SSL_CERT_FILE");
    if (authorities && authorities[0]) set(CURLOPT_CAINFO, authorities);
    // Cancelling doesn't wait for a lookup in progress.
    set(CURLOPT_QUICK_EXIT, 1L);
    if (!ok) throw Error("the installed libcurl lacks an option that is needed");
}

HttpSink::~HttpSink() {
    take_off();
}

ExportSink::Outcome HttpSink::start(const std::string& text) {
    CurlGuard guard;  // names are looked up at the start of a transfer
    m_curl_error[0] = '\0';
    curl_easy_setopt(m_easy.get(), CURLOPT_POSTFIELDS, text.c_str());
    curl_easy_setopt(m_easy.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(text.size()));
    CURLMcode added = curl_multi_add_handle(m_multi.get(), m_easy.get());
    if (added != CURLM_OK) {
        m_error = curl_multi_strerror(added);
        return FAILED;
    }
    m_under_way = true;
    return poll();
}

ExportSink::Outcome HttpSink::poll() {
    int running = 0;
    CURLMcode worked = curl_multi_perform(m_multi.get(), &running);
    if (worked != CURLM_OK) {
        take_off();
        m_error = curl_multi_strerror(worked);
        return FAILED;
    }
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(m_multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) return settle(message->data.result);
    }
    return PENDING;
}

ExportSink::Outcome HttpSink::settle(CURLcode result) {
    long status = 0;
    curl_easy_getinfo(m_easy.get(), CURLINFO_RESPONSE_CODE, &status);
    take_off();
    if (result != CURLE_OK) {
        m_error = m_curl_error[0] ? m_curl_error : curl_easy_strerror(result);
        return FAILED;
    }
    if (status >= 200 && status < 300) return SENT;
    m_error = "HTTP status " + std::to_string(status);
    bool passes = status == 408 || status == 429 || status >= 500;
    return passes ? FAILED : REFUSED;
}

void HttpSink::take_off() {
    if (m_under_way) curl_multi_remove_handle(m_multi.get(), m_easy.get());
    m_under_way = false;
}

void HttpSink::describe(Json::Value& out) const {
    out["type"] = m_config.type == api::EXPORTER_HTTPS ? "https" : "http";
    out["server"] = m_config.server;
    out["port"] = m_config.port;
    out["path"] = m_config.path;
}

}  // namespace corvo::engine
