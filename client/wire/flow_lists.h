#pragma once
// The flows and hosts that the loaded engine lists, a page at a time. Not every engine has these lists.

#include <json/value.h>

#include <functional>
#include <string>

#include "client/wire/daemon.h"

namespace brumectl::flow_lists {

struct List {
    const char* method;
    const char* member;  ///< of a page: its rows
};
inline constexpr List FLOWS = {"flows.list", "flows"};
inline constexpr List HOSTS = {"flows.hosts", "hosts"};
/** Rows of the largest page. */
inline constexpr unsigned PAGE = 1000;

/** Sends one request and returns its result. */
using Ask = std::function<Json::Value(const char* method, const Json::Value& params)>;
/** Takes a row; returns false to stop. */
using Take = std::function<bool(const Json::Value& row)>;

/**
 * Why live flows can't be listed; empty if they can. Asks nothing that the daemon would refuse, since each
 * refusal is an error in its log. `status` is the daemon's, just asked for. Throws like `ask`.
 */
std::string obstacle(const Ask& ask, const Json::Value& status, const List& list);
/**
 * Asks for page after page. Throws like `ask`, but a refusal that an obstacle explains has that obstacle as
 * its text; Failure for a reply that is no list; Interrupted.
 */
void read(const Ask& ask, const List& list, Json::Value params, const Take& take);
/** Asks the daemon, within its timeout for each page. */
Ask asker(Daemon& daemon);

}  // namespace brumectl::flow_lists
