#pragma once
// A message as seen by a client: request or response, possibly in a compressed container. For clients and
// tools; the daemon itself doesn't use it.

#include <json/value.h>

#include <string>

namespace corvo {

/** Parses in its constructor; check the kind before using anything else. */
class MsgParser {
 public:
    enum kind_e {
        KIND_REQUEST = 0,
        KIND_RESPONSE_OK = 1,
        KIND_INVALID = 2,
        KIND_UNZIP_FAILED = 3,
        KIND_RESPONSE_ERROR = 4,
    };

    explicit MsgParser(const std::string& msg);

    kind_e kind() const { return m_kind; }
    /** The message text, uncompressed. */
    const std::string& msg() const { return m_msg; }
    /** Null if the text isn't JSON. */
    const Json::Value& root() const { return m_root; }
    /** For error responses: the command's own explanation, or else the general message. */
    const std::string& error() const { return m_error; }

 private:
    bool unzip();
    void parse();
    void parse_request();
    void parse_response();

    std::string m_msg;
    Json::Value m_root;
    kind_e m_kind = KIND_INVALID;
    std::string m_error;
};

}  // namespace corvo
