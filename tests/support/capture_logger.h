#pragma once
// Replaces the program's logger while it lives, and keeps what is logged.

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "infra/corvo_logger.h"

namespace test {

class CaptureLogger : public corvo::Logger::LoggerInstance {
 public:
    explicit CaptureLogger(corvo::Logger::logger_level_e level = corvo::Logger::ERROR,
                           const std::string& filename = "")
        : LoggerInstance(level, filename) {
        corvo::Logger::set_logger(this);
    }
    ~CaptureLogger() override { corvo::Logger::close_logger(); }

    void write(const char* fmt, va_list args, bool) override {
        char line[4096];
        std::vsnprintf(line, sizeof line, fmt, args);
        m_lines.emplace_back(line);
        if (on_line) on_line();
    }
    void flush() override {}

    const std::vector<std::string>& lines() const { return m_lines; }
    /** How many lines hold this text. */
    long count(const std::string& text) const {
        return std::count_if(m_lines.begin(), m_lines.end(),
                             [&](const auto& line) { return line.find(text) != std::string::npos; });
    }

    std::function<void()> on_line;

 private:
    std::vector<std::string> m_lines;
};

}  // namespace test
