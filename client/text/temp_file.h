#pragma once
// A file that exists only as long as it is needed, or until it is complete and takes its final name. It is
// removed however the program ends, short of a kill: signals are blocked while it is created.

#include <sys/types.h>

#include <memory>
#include <string>

#include "utils/unique_file.h"

namespace brumectl {

class TempFile {
 public:
    /** Creates `prefix` plus six random characters, with this mode. Throws Failure. */
    TempFile(const std::string& prefix, mode_t mode);
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile();

    const std::string& path() const { return m_path; }
    /** For use with `pwrite`, as long as nothing has been written with `write`. */
    int fd() const;
    /** Makes `remove_left_behind` leave it alone as long as this process lives. */
    void claim() const;
    /** Throws Failure. */
    void set_mode(mode_t mode);
    /**
     * Sets mode 0640 and the group. Returns false, with nothing changed, if this user may not give it to that
     * group. Throws Failure.
     */
    bool give_to_group(gid_t group);
    /** Throws Failure, for example if the disk is full. */
    void write(const void* bytes, size_t size);
    void write(const std::string& text) { write(text.data(), text.size()); }
    /** Flushes everything to the file; nothing more can be written. Throws Failure. */
    void close();
    /** Closes it and replaces `target` with it. Throws Failure, leaving `target` as it was. */
    void rename_to(const std::string& target);

 private:
    [[noreturn]] void fail(const char* what) const;

    std::string m_path;
    corvo::UniqueFile m_file;
};

/** Removes files of this user with this prefix that were claimed by processes which have been killed. */
void remove_left_behind(const std::string& prefix);

/** $TMPDIR, or else /tmp; absolute. */
std::string temp_folder();
/** A file there without a name, for writing and reading. Throws Failure. */
corvo::UniqueFile nameless_file();

/** A file that appears complete, or else leaves what exists under its name. */
class PlacedFile {
 public:
    /**
     * Follows a symbolic link. Refuses anything but a regular file, because it would be replaced.
     * Throws Failure if nothing can be written there.
     */
    explicit PlacedFile(const std::string& target);
    /** Adds to its content. Throws Failure. */
    void write(const std::string& content) { m_file->write(content); }
    /** Adds the rest and puts the file in place. Call once. Throws Failure. */
    void place(const std::string& content);

 private:
    std::string m_path;
    std::unique_ptr<TempFile> m_file;
};

}  // namespace brumectl
