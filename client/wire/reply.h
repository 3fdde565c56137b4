#pragma once
// The text of a reply: whether it is ours, what it says, and the compressed result in it. Nothing in it is
// trusted before it is checked; memory is limited by the caller, not by what the reply claims.

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace brumectl::reply {

/** Throws Failure if the text isn't a JSON object of version 2.0. */
Json::Value parse(const std::string& text);
/**
 * Whether the reply has this id, or none and so may be for this request (an error that the daemon
 * couldn't assign).
 */
bool answers(const Json::Value& reply, uint64_t id);
/** Throws ErrorReply if the reply is an error. */
void throw_error(const Json::Value& reply);
/**
 * The result of a reply, decompressed if necessary.
 * Throws ErrorReply; Failure for a result that lies about its size, exceeds `max_bytes` or can't
 * be decompressed.
 */
Json::Value result_of(const Json::Value& reply, size_t max_bytes);
/** Returns `text`; if the result is compressed, the same reply with the plain result and `fmt` adjusted. */
std::string unpack_text(const Json::Value& reply, const std::string& text, size_t max_bytes);

}  // namespace brumectl::reply
