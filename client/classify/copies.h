#pragma once
// Where the daemon reads what of a capture is pushed next: one file that is written again and again. Nobody
// who couldn't read the capture can read it but the daemon, or the user is told before.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/classify/file_reader.h"
#include "client/text/temp_file.h"
#include "utils/unique_fd.h"

namespace brumectl {

class Copies {
 public:
    using Tell = std::function<void(const std::string&)>;

    /** Asks the daemon nothing before the first of the calls below. Both must outlive this. */
    Copies(Daemon& daemon, Tell tell) : m_daemon(daemon), m_tell(std::move(tell)) {}

    /** For parts of this capture (empty: nobody can open it by a name). @throws as Daemon::call; Failure */
    void prepare(const std::string& capture);
    /** Name for the daemon. Without a name in a folder it is gone with this process, however that ends. */
    const std::string& path() const { return m_path; }
    /** @throws Failure, as for a disk that is full */
    void write(uint64_t offset, const unsigned char* bytes, size_t size) const;
    /** It ends there. @throws Failure */
    void finish(uint64_t size);
    /** The daemon couldn't open it: what is in it goes to another. False: there is none. @throws Failure */
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
