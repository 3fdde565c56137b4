#pragma once
// Notifications that the engine raises for the daemon's operators.

#include <brumecpd/engine_notify.h>

#include <string>

namespace corvo::engine {

struct Notice {
    const char* name;  ///< a literal
    notif::Severity severity;
    std::string text;
};

/** Raises a notification if there is a hub; never fails. */
inline void raise_notice(const char* name, notif::Severity severity, const std::string& text) noexcept {
    if (!notif::__notify) return;
    try {
        notif::__notify("engine", name, severity, text);
    } catch (...) {
        // The event is lost, like any that a subscriber can't take.
    }
}

}  // namespace corvo::engine
