#pragma once
// The text of a reply: is it ours, what does it say, what was packed in it. Nothing in it is believed before
// it is checked; memory is bounded by what the caller allows, not by what the reply says.

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace brumectl::reply {

/** @throws Failure for a text that is no JSON object of version 2.0 */
Json::Value parse(const std::string& text);
/** Carries this id, or none that could be another request's (a fault that the daemon couldn't assign). */
bool answers(const Json::Value& reply, uint64_t id);
/** @throws ErrorReply if the reply is one */
void throw_error(const Json::Value& reply);
/**
 * The result of a reply, unpacked where it came packed.
 * @throws ErrorReply; Failure for a result that lies about its size, is above `max_bytes` or can't be
 * unpacked
 */
Json::Value result_of(const Json::Value& reply, size_t max_bytes);
/** `text` itself; with a packed result, the same reply with the plain one and `fmt` saying so. */
std::string unpack_text(const Json::Value& reply, const std::string& text, size_t max_bytes);

}  // namespace brumectl::reply
