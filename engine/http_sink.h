#pragma once
// Sends texts as the bodies of POST requests with libcurl, driven by `poll`. Connections are kept open
// between requests.

#include <brumecpd/engine_api.h>
#include <curl/curl.h>

#include <memory>
#include <string>

#include "export_sink.h"

namespace corvo::engine {

class HttpSink : public ExportSink {
 public:
    /** Throws Error if the server, port or path is invalid. Sends nothing yet. */
    HttpSink(const api::ExporterConfig& config, Payload payload);
    ~HttpSink() override;

    Outcome start(const std::string& text) override;
    Outcome poll() override;
    size_t max_text() const override { return 1 << 20; }
    const std::string& error() const override { return m_error; }
    void describe(Json::Value& out) const override;

 private:
    /** Holds curl's process-wide state. */
    struct Global {
        Global();
        Global(const Global&) = delete;
        ~Global() { curl_global_cleanup(); }
    };
    struct Deleter {
        void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };
    struct EasyDeleter {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };

    void set_up_request(long timeout_ms);
    Outcome settle(CURLcode result);
    void take_off();

    api::ExporterConfig m_config;
    std::string m_url;
    std::string m_error;
    char m_curl_error[CURL_ERROR_SIZE] = {};
    Global m_global;
    std::unique_ptr<CURLM, Deleter> m_multi;
    std::unique_ptr<curl_slist, Deleter> m_headers;
    std::unique_ptr<CURL, EasyDeleter> m_easy;
    bool m_under_way = false;
};

}  // namespace corvo::engine
