#pragma once
// Samples as lines at the end of a file. It is opened for each line: a file that was moved away, as when logs
// are rotated, is made anew.

#include <string>

#include "export_sink.h"
#include "owned_fd.h"

namespace corvo::engine {

class FileSink : public ExportSink {
 public:
    /** Throws Error if the file can't be written; makes an empty one where there is none. */
    explicit FileSink(const std::string& path);

    Outcome start(const std::string& text) override;
    Outcome poll() override { return FAILED; }  // nothing is ever pending
    const std::string& error() const override { return m_error; }
    void describe(Json::Value& out) const override;

 private:
    OwnedFd open_file();

    std::string m_path;
    std::string m_error;
};

}  // namespace corvo::engine
