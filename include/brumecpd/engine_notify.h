#pragma once
// How an engine library raises a notification in the daemon that has loaded it. The daemon exports the
// function; the reference is weak, so that a library also loads into programs without it. Test its address
// before every call:
//
//     if (corvo::notif::__notify) corvo::notif::__notify("engine", "flow_table.full", SEV_WARN, text);
//
// Only on the thread that calls the library, and within such a call.

#include <string>

namespace corvo::notif {

enum Severity : int {
    SEV_ANY = 0,  ///< only in filters: lets everything pass
    SEV_INFO = 1,
    SEV_WARN = 2,
    SEV_SEVERE = 3,
};

/** Delivers the event to all subscribers. One that is raised during another one's delivery is dropped. */
[[gnu::weak, gnu::visibility("default")]] void __notify(const std::string& feature, const std::string& name,
                                                        Severity severity, const std::string& desc);

}  // namespace corvo::notif
