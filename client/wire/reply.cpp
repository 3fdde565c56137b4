#include "client/wire/reply.h"

#include <lz4.h>

#include <climits>

#include "client/failure.h"
#include "infra/json/corvo_json.h"
#include "utils/base64.h"

namespace brumectl::reply {

namespace {

/** LZ4 expands a byte to at most 255; a reply that promises more is lying. */
constexpr size_t MAX_LZ4_RATIO = 255;

bool is_packed(const Json::Value& reply) {
    return reply["fmt"].isObject() && reply["fmt"]["type"] == "lz4";
}

std::string unpack(const Json::Value& reply, size_t max_bytes) {
    const Json::Value& size = reply["fmt"]["size"];
    if (!reply["result"].isString() || !size.isUInt64())
        throw Failure("the reply's packed result has no size");
    const uint64_t plain_len = size.asUInt64();
    std::string packed = b64_decode(reply["result"].asString());
    if (plain_len > max_bytes || plain_len > INT_MAX || plain_len / MAX_LZ4_RATIO > packed.size())
        throw Failure("the reply's result lies about its size or is too large");
    std::string plain(static_cast<size_t>(plain_len), '\0');
    int len = LZ4_decompress_safe(packed.data(), plain.data(), static_cast<int>(packed.size()),
                                  static_cast<int>(plain_len));
    if (len < 0 || static_cast<uint64_t>(len) != plain_len)
        throw Failure("the reply's packed result is damaged");
    return plain;
}

Json::Value unpacked_value(const Json::Value& reply, size_t max_bytes) {
    Json::Value value;
    std::string error;
    if (!corvo::json::parse(unpack(reply, max_bytes), value, &error))
        throw Failure("the reply's packed result is no JSON: " + error);
    return value;
}

std::string text_of(const Json::Value& error) {
    const Json::Value& specific = error["specific_err"];
    if (specific.isString()) return specific.asString();
    if (!specific.isNull()) return corvo::json::write(specific);
    return error["message"].isString() ? error["message"].asString() : "an error without a text";
}

}  // namespace

Json::Value parse(const std::string& text) {
    Json::Value reply;
    std::string error;
    if (!corvo::json::parse(text, reply, &error)) throw Failure("the reply is no JSON: " + error);
    if (!reply.isObject() || reply["jsonrpc"] != "2.0" ||
        !(reply.isMember("result") || reply["error"].isObject()))
        throw Failure("the reply is no JSON-RPC 2.0 response");
    return reply;
}

bool answers(const Json::Value& reply, uint64_t id) {
    const Json::Value& found = reply["id"];
    return !found.isUInt64() || found.asUInt64() == id;
}

void throw_error(const Json::Value& reply) {
    const Json::Value& error = reply["error"];
    if (error.isObject()) throw ErrorReply(error["code"].isInt() ? error["code"].asInt() : 0, text_of(error));
}

Json::Value result_of(const Json::Value& reply, size_t max_bytes) {
    throw_error(reply);
    return is_packed(reply) ? unpacked_value(reply, max_bytes) : reply["result"];
}

std::string unpack_text(const Json::Value& reply, const std::string& text, size_t max_bytes) {
    if (!is_packed(reply)) return text;
    Json::Value plain = reply;
    plain["result"] = unpacked_value(reply, max_bytes);
    plain["fmt"]["type"] = "plain";
    return corvo::json::write_line(plain);
}

}  // namespace brumectl::reply
