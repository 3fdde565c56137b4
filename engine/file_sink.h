#pragma once
// Appends texts to a file, one per line. The file is opened anew for each text, so one that was moved away,
// as by log rotation, is created again.

#include <string>

#include "export_sink.h"
#include "owned_fd.h"

namespace corvo::engine {

class FileSink : public ExportSink {
 public:
    /** Throws Error if the file can't be written; creates an empty one if it doesn't exist. */
    explicit FileSink(const std::string& path);

    Outcome start(const std::string& text) override;
    Outcome poll() override { return FAILED; }  // nothing is ever pending
    size_t max_text() const override;
    const std::string& error() const override { return m_error; }
    void describe(Json::Value& out) const override;

 private:
    OwnedFd open_file();

    std::string m_path;
    std::string m_error;
};

}  // namespace corvo::engine
