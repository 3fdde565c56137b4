#pragma once
// The file from which the daemon reads the next piece of a capture, rewritten for each piece. Nobody but the
// daemon can read it who couldn't read the capture, or else the user is warned first.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/text/temp_file.h"
#include "client/wire/file_reader.h"
#include "utils/unique_fd.h"

namespace brumectl {

class Copies {
 public:
    using Tell = std::function<void(const std::string&)>;

    /** Sends the daemon no request until one of the calls below. Both arguments must outlive this object. */
    Copies(Daemon& daemon, Tell tell) : m_daemon(daemon), m_tell(std::move(tell)) {}

    /**
     * Prepares for pieces of this capture (empty: nobody can open it by name). Throws like
     * Daemon::call; Failure.
     */
    void prepare(const std::string& capture);
    /**
     * The file's name for the daemon. A file without a name in a folder disappears with this process, however
     * it ends.
     */
    const std::string& path() const { return m_path; }
    /** Throws Failure, for example if the disk is full. */
    void write(uint64_t offset, const unsigned char* bytes, size_t size) const;
    /** Truncates the file to `size`. Throws Failure. */
    void finish(uint64_t size);
    /**
     * Call if the daemon couldn't open the file: switches to a named one. Returns false if there is none.
     * Throws Failure.
     */
    bool use_name();

 private:
    const std::optional<FileReader>& reader();
    bool sees_our_descriptors();
    void make_named(const std::string& capture);
    void tell_if_open(const std::string& capture);

    Daemon& m_daemon;
    Tell m_tell;
    bool m_has_looked = false;
    bool m_has_told = false;
    bool m_is_open = false;  ///< everybody may read it
    std::optional<FileReader> m_reader = {};
    std::string m_capture = {};
    std::unique_ptr<TempFile> m_named = {};
    corvo::UniqueFd m_nameless = {};
    std::string m_path = {};
    uint64_t m_size = 0;
};

}  // namespace brumectl
