#pragma once
// How an engine library raises a notification in the daemon that has loaded it. The daemon exports the
// function. The reference is weak so that a library also loads into programs without it; test its address
// before every call:
//
//     if (corvo::notif::__notify) corvo::notif::__notify("engine", "flow_table.full", SEV_WARN, text);
//
// Call it only on the thread that calls the library, and only during such a call.

#include <string>

namespace corvo::notif {

enum Severity : int {
    SEV_ANY = 0,  ///< for filters only: lets everything pass
    SEV_INFO = 1,
    SEV_WARN = 2,
    SEV_SEVERE = 3,
};

/** Delivers the event to all subscribers. An event raised while another is being delivered is dropped. */
[[gnu::weak, gnu::visibility("default")]] void __notify(const std::string& feature, const std::string& name,
                                                        Severity severity, const std::string& desc);

}  // namespace corvo::notif
