#pragma once
// A file that exists only as long as it is needed, or until it is whole and takes its place under its final
// name. Every way out of the program but a kill removes it: signals are held while it is made.

#include <sys/types.h>

#include <memory>
#include <string>

#include "utils/unique_file.h"

namespace brumectl {

class TempFile {
 public:
    /** Creates `prefix` and six random characters, with this mode. @throws Failure */
    TempFile(const std::string& prefix, mode_t mode);
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile();

    const std::string& path() const { return m_path; }
    /** For `pwrite` beside it, as nothing has been written by `write`. */
    int fd() const;
    /** `remove_left_behind` leaves it alone as long as this process lives. */
    void claim() const;
    /** @throws Failure */
    void set_mode(mode_t mode);
    /** Mode 0640. False, and nothing has changed: this user may not give it to that group. @throws Failure */
    bool give_to_group(gid_t group);
    /** @throws Failure, as for a disk that is full */
    void write(const void* bytes, size_t size);
    void write(const std::string& text) { write(text.data(), text.size()); }
    /** Everything is in the file afterwards, and nothing more can be written. @throws Failure */
    void close();
    /** Closes it and puts it in the place of `target`. @throws Failure; `target` is then as it was */
    void rename_to(const std::string& target);

 private:
    [[noreturn]] void fail(const char* what) const;

    std::string m_path;
    corvo::UniqueFile m_file;
};

/** Files of this user with these first letters that were claimed by processes which were killed. */
void remove_left_behind(const std::string& prefix);

/** $TMPDIR, else /tmp; absolute. */
std::string temp_folder();
/** A file there that has no name, to be written and read. @throws Failure */
corvo::UniqueFile nameless_file();

/** A file that appears whole, or leaves what stands under its name. */
class PlacedFile {
 public:
    /**
     * A symbolic link is followed; what isn't a regular file is refused, for it would be replaced.
     * @throws Failure if nothing can be written there
     */
    explicit PlacedFile(const std::string& target);
    /** More of its content. @throws Failure */
    void write(const std::string& content) { m_file->write(content); }
    /** The rest of it. Once. @throws Failure */
    void place(const std::string& content);

 private:
    std::string m_path;
    std::unique_ptr<TempFile> m_file;
};

}  // namespace brumectl
