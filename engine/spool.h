#pragma once
// Records on their way, kept on disk: first in, first out, across crashes and restarts. A folder of files
// that are only appended to, each named after the number of its first record, and of a note saying how far
// they have been sent.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "owned_fd.h"

namespace corvo::engine {

/** What each record begins with; its number follows. */
inline constexpr std::string_view RECORD_START = "{\"number\":";

/** The number of a record, a line; 0 if it isn't one. */
uint64_t record_number(std::string_view line);

class Spool {
 public:
    /**
     * Creates the last part of `folder` if needed. Other files there are left alone, and whatever in ours
     * isn't a record is passed over. Throws Error if the folder can't be used, or another process is using
     * it.
     */
    Spool(const std::string& folder, uint64_t max_bytes, uint64_t least_next = 1);
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    /** One more than the number of the last record that was ever spooled here; at least `least_next`. */
    uint64_t next_number() const { return m_next; }
    /**
     * Adds whole lines, records up to the number before `next`, making room by removing the oldest files.
     * False if that fails: then nothing was added, and `error` says why.
     */
    bool append(std::string_view lines, uint64_t next);
    /**
     * Moves on by some records: at most `max_bytes`, but at least one. They stay until `accept`. False if
     * there is none, or only rubbish so far.
     */
    bool read(size_t max_bytes, std::string& lines);
    /** What was read is no longer needed. */
    void accept();
    /** What was read is to be read again. */
    void rewind();
    /**
     * Writes the note, if it isn't up to date: a crash repeats what was accepted since. False if that fails;
     * `error` says why.
     */
    bool save();

    /** Size of what wasn't accepted yet. */
    uint64_t waiting_bytes() const;
    /** Records removed unread to make room. */
    uint64_t dropped() const { return m_dropped; }
    /** Lines that were no records. */
    uint64_t rubbish() const { return m_rubbish; }
    const std::string& error() const { return m_error; }

 private:
    struct Segment {
        uint64_t first;
        uint64_t size;
    };
    struct Position {
        uint64_t segment = 0;  ///< its first number
        uint64_t offset = 0;
        bool operator==(const Position&) const = default;
    };

    static std::string name_of(uint64_t first);
    void list_segments(const std::string& folder);
    void find_next_number();
    void load_position();
    void take_position(const Segment& segment, uint64_t offset);
    bool begin_segment();
    void drop_oldest();
    void remove_oldest();
    OwnedFd open_segment(uint64_t first) const;
    std::string chunk(const Segment& segment, size_t max_bytes);
    void keep_records(std::string& lines);
    bool failed(const char* what, int error);

    OwnedFd m_folder;
    OwnedFd m_writing;  ///< the last segment, once anything was appended
    std::deque<Segment> m_segments;
    uint64_t m_max_bytes;
    uint64_t m_segment_bytes;
    uint64_t m_bytes = 0;  ///< of all segments
    uint64_t m_next = 1;
    Position m_read;
    Position m_accepted;
    Position m_saved;
    uint64_t m_read_number = 0;  ///< one more than that of the last record read
    uint64_t m_accepted_number = 0;
    uint64_t m_orphans = 0;  ///< records read, not accepted, and removed meanwhile
    uint64_t m_dropped = 0;
    uint64_t m_rubbish = 0;
    std::string m_error;
};

}  // namespace corvo::engine
