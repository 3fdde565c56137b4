#pragma once
// How an engine misbehaves when it is told to, by MISCHIEF=DEED:FUNCTION. See README.md.

#include <brumecpd/engine_api.h>

#include <string>
#include <vector>

namespace mischief {

/** Whether this deed is to be done in this function now; at most once while MISCHIEF_MARK's file is there. */
bool told(const std::string& deed, const std::string& function);
/** Does what every function can be told to do. */
void misbehave(const std::string& function, std::string& err);

/** A value that no reader of JSON would take back. */
Json::Value nonsense_value();
std::vector<std::string> nonsense_list();
std::string nonsense_text();
void make_nonsense_of(std::vector<corvo::api::pkt_>& pkts);

}  // namespace mischief
