#pragma once
// A folder that is removed, with all that is in it, when the test ends.

#include <string>

namespace test {

class TempDir {
 public:
    TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir();

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    /** Writes a file and returns its path. */
    std::string write(const std::string& name, const std::string& content) const;

 private:
    std::string m_path;
};

/** The whole file; empty if it can't be read. */
std::string read_file(const std::string& path);

}  // namespace test
