#include "infra/json/corvo_jsonrpc_msg.h"

#include "infra/corvo_zip.h"
#include "infra/json/corvo_json.h"
#include "infra/json/corvo_jsonrpc_v2.h"

namespace corvo {

namespace {

/** A value of any type, where a peer should have sent a text. */
std::string text_of(const Json::Value& value) {
    return value.isArray() || value.isObject() ? json::write(value) : value.asString();
}

}  // namespace

MsgParser::MsgParser(const std::string& msg) : m_msg(msg) {
    if (corvo_zip_is_zipped(m_msg.data(), static_cast<unsigned>(m_msg.size())) && !unzip()) {
        m_kind = KIND_UNZIP_FAILED;
        return;
    }
    parse();
}

bool MsgParser::unzip() {
    char* text = nullptr;
    const int len = corvo_zip_unzip(m_msg.data(), static_cast<unsigned>(m_msg.size()), &text);
    if (len < 1) return false;
    m_msg.assign(text, static_cast<size_t>(len));
    corvo_zip_destroy(text);
    return true;
}

void MsgParser::parse() {
    m_kind = KIND_INVALID;
    if (!json::parse(m_msg, m_root) || !is_proper_json_format(m_root)) return;
    if (m_root.isMember("method")) {
        parse_request();
    } else if (m_root.isMember("result") || m_root.isMember("error")) {
        parse_response();
    }
}

void MsgParser::parse_request() {
    m_kind = KIND_REQUEST;
}

void MsgParser::parse_response() {
    const Json::Value& error = m_root["error"];
    if (error.isNull()) {
        m_kind = KIND_RESPONSE_OK;
        return;
    }
    m_kind = KIND_RESPONSE_ERROR;
    if (!error.isObject()) {
        m_error = text_of(error);
        return;
    }
    const Json::Value& explanation = error["specific_err"];
    m_error = text_of(explanation.isNull() ? error["message"] : explanation);
}

}  // namespace corvo
