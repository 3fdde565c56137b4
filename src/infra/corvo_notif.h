#pragma once
// Raises notifications: named events with a severity and a line of text. An event is delivered to all
// subscribers during the call and then discarded; failures of subscribers don't reach the caller. The hub is
// a weak reference, so code that raises events also links into programs without one. Severities and the
// delivery function are declared where engine libraries can find them too.

#include <brumecpd/engine_notify.h>

#include <cassert>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <tuple>

#include "infra/corvo_logger.h"
#include "utils/exception.h"

namespace Json {
class Value;
}

namespace corvo::notif {

/** Feature, name and severity of a kind of event, defined once where it is raised. */
using notif_t = std::tuple<std::string, std::string, Severity>;

/**
 * Performs the RPC operations on the subscribers' data. Throws corvo::Exception with a text for the client.
 */
[[gnu::weak]] void __ops(const Json::Value& params, Json::Value& res);

namespace detail {

inline const std::string COMP = "notif";

inline void require_hub(bool resolved, const char* name) {
    if (resolved) return;
    std::fprintf(stderr, "\n*** Critical: weak function '%s' was not resolved ***\n\n", name);
    assert(!"the notification hub isn't part of this program");
}

inline std::string format(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    if (length < 0) throw Exception(std::string("bad format: '") + format + "'");
    return text;
}

}  // namespace detail

inline void notify(const notif_t& kind) {
    detail::require_hub(__notify != nullptr, "__notify");
    const auto& [feature, name, severity] = kind;
    __notify(feature, name, severity, "");
}

/** `format` must be a literal; pass texts from outside as arguments. */
[[gnu::format(printf, 2, 3)]] inline void notify(const notif_t& kind, const char* format, ...) {
    detail::require_hub(__notify != nullptr, "__notify");
    const auto& [feature, name, severity] = kind;
    va_list args;
    va_start(args, format);
    try {
        __notify(feature, name, severity, detail::format(format, args));
    } catch (const Exception&) {
        CORVO_LOG(ERROR, detail::COMP, "bad formatting for notification: '%s'", format);
    }
    va_end(args);
}

/** `__ops`, for programs that contain the hub. */
inline void ops(const Json::Value& params, Json::Value& res) {
    detail::require_hub(__ops != nullptr, "__ops");
    __ops(params, res);
}

}  // namespace corvo::notif
