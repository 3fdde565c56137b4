#pragma once
// JSON Schema, as far as docs/openrpc.json uses it.

#include <json/value.h>

namespace test {

/** Negative numbers have no place in these schemas. Throws std::logic_error for an unknown keyword. */
bool validates(const Json::Value& schema, const Json::Value& value);

}  // namespace test
