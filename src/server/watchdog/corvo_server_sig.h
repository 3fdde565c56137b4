#pragma once
// Reports that are kept in memory and shown by the `events` method.

#include <json/value.h>

namespace corvo::server {

class SignalReport {
 public:
    SignalReport() = default;
    SignalReport(const SignalReport&) = delete;
    SignalReport& operator=(const SignalReport&) = delete;
    virtual ~SignalReport() = default;
    virtual Json::Value to_json() const = 0;
};

}  // namespace corvo::server
