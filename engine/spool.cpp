#include "spool.h"

#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr uint64_t MAX_SEGMENT = 8 << 20;
constexpr uint64_t SEGMENTS = 8;
/** A file that was sent is given up for a new one from this size on: it may never have to reach the disk. */
constexpr uint64_t WORTH_REMOVING = 1 << 20;
/** How much of the last file's end is searched for its last record. */
constexpr uint64_t TAIL = 1 << 20;
constexpr std::string_view PREFIX = "records-";
constexpr std::string_view SUFFIX = ".ndjson";
constexpr size_t DIGITS = 20;
/** No file of ours begins with a higher number, and none is that long. */
constexpr uint64_t HIGHEST_FIRST = uint64_t{1} << 53;
constexpr uint64_t LONGEST_FILE = uint64_t{1} << 40;
constexpr size_t LONGEST_RECORD = 1 << 16;
/** How many pieces of rubbish are passed over at once. */
constexpr int PIECES = 8;
constexpr const char* NOTE = "sent";
constexpr const char* NEW_NOTE = "sent.new";

bool all_digits(std::string_view text, uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/** 0 for a foreign name. */
uint64_t first_of(std::string_view name) {
    uint64_t first = 0;
    if (name.size() != PREFIX.size() + DIGITS + SUFFIX.size() || !name.starts_with(PREFIX) ||
        !name.ends_with(SUFFIX) || !all_digits(name.substr(PREFIX.size(), DIGITS), first) ||
        first > HIGHEST_FIRST)
        return 0;
    return first;
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

std::string read_all(int fd, uint64_t from, size_t most) {
    std::string out(most, '\0');
    const ssize_t count = fd < 0 ? -1 : pread(fd, out.data(), most, static_cast<off_t>(from));
    out.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return out;
}

}  // namespace

uint64_t record_number(std::string_view line) {
    if (!line.starts_with(RECORD_START) || !line.ends_with('}')) return 0;
    line.remove_prefix(RECORD_START.size());
    const size_t digits = std::min(line.find(','), line.size());
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    uint64_t number = 0;
    return all_digits(line.substr(0, digits), number) && std::none_of(line.begin(), line.end(), control)
               ? number
               : 0;
}

Spool::Spool(const std::string& folder, uint64_t max_bytes, uint64_t least_next)
    : m_max_bytes(max_bytes), m_segment_bytes(std::min(MAX_SEGMENT, max_bytes / SEGMENTS)) {
    if (mkdir(folder.c_str(), 0750) < 0 && errno != EEXIST)
        throw Error("can't create the spool folder " + quoted(folder) + reason(errno));
    m_folder = OwnedFd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder) throw Error("can't open the spool folder " + quoted(folder) + reason(errno));
    if (flock(m_folder.get(), LOCK_EX | LOCK_NB) < 0)
        throw Error(
            "the spool folder " + quoted(folder) +
            (errno == EWOULDBLOCK ? " is in use by another process" : " can't be locked" + reason(errno)));
    list_segments(folder);
    find_next_number();
    m_next = std::max(m_next, least_next);
    load_position();
}

std::string Spool::name_of(uint64_t first) {
    std::string digits = std::to_string(first);
    return std::string(PREFIX) + std::string(DIGITS - digits.size(), '0') + digits + std::string(SUFFIX);
}

void Spool::list_segments(const std::string& folder) {
    const std::unique_ptr<DIR, DirCloser> dir(opendir(folder.c_str()));
    if (!dir) throw Error("can't read the spool folder " + quoted(folder) + reason(errno));
    while (const dirent* entry = readdir(dir.get())) {
        const uint64_t first = first_of(entry->d_name);
        struct stat found {};
        if (first == 0 || fstatat(m_folder.get(), entry->d_name, &found, AT_SYMLINK_NOFOLLOW) < 0 ||
            !S_ISREG(found.st_mode))
            continue;
        m_segments.push_back({first, static_cast<uint64_t>(found.st_size)});
        m_bytes += m_segments.back().size;
    }
    std::sort(m_segments.begin(), m_segments.end(),
              [](const Segment& a, const Segment& b) { return a.first < b.first; });
}

// A number that is too high costs nothing but the look of a loss; one that is too low would be used twice.
// Each record takes more than a byte.
void Spool::find_next_number() {
    if (m_segments.empty()) return;
    const Segment& last = m_segments.back();
    const uint64_t from = last.size - std::min(last.size, TAIL);
    const OwnedFd file = open_segment(last.first);
    const std::string tail = read_all(file.get(), from, last.size - from);
    m_next = file && from == 0 ? last.first : last.first + std::min(last.size, LONGEST_FILE);
    for (size_t begin = 0, end; (end = tail.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const uint64_t number = record_number(std::string_view(tail).substr(begin, end - begin));
        if (number >= last.first) m_next = number + 1;
    }
}

void Spool::load_position() {
    if (m_segments.empty()) return;
    m_read = {m_segments.front().first, 0};
    const OwnedFd file(openat(m_folder.get(), NOTE, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    const std::string note = read_all(file.get(), 0, 64);
    const size_t space = note.find(' ');
    const size_t end = note.find('\n');
    Position noted;
    if (end != std::string::npos && space < end && all_digits(note.substr(0, space), noted.segment) &&
        all_digits(note.substr(space + 1, end - space - 1), noted.offset)) {
        for (const Segment& segment : m_segments) {
            if (segment.first == noted.segment && noted.offset <= segment.size)
                take_position(segment, noted.offset);
        }
    }
    m_accepted = m_saved = m_read;
    m_accepted_number = m_read_number;
    while (m_segments.front().first < m_read.segment)
        remove_oldest();
}

/** Unless it isn't the begin of a line. */
void Spool::take_position(const Segment& segment, uint64_t offset) {
    const OwnedFd file = open_segment(segment.first);
    const std::string around = read_all(file.get(), offset - (offset > 0), LONGEST_RECORD);
    if (offset > 0 && !around.starts_with('\n')) return;
    m_read = {segment.first, offset};
    m_read_number = record_number(std::string_view(around).substr(offset > 0, around.find('\n', 1) - 1));
}

OwnedFd Spool::open_segment(uint64_t first) const {
    return OwnedFd(
        openat(m_folder.get(), name_of(first).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
}

bool Spool::failed(const char* what, int error) {
    m_error = std::string("can't ") + what + " the spool" + reason(error);
    return false;
}

// The last file stays as it was left by a crash: its end may be cut. One with the new name has no record.
bool Spool::begin_segment() {
    OwnedFd file(openat(m_folder.get(), name_of(m_next).c_str(),
                        O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0640));
    if (!file) return failed("add a file to", errno);
    if (!m_segments.empty() && m_segments.back().first == m_next) {
        m_bytes -= m_segments.back().size;
        m_segments.pop_back();
        if (m_read.segment == m_next) m_read.offset = m_accepted.offset = 0;
    }
    m_segments.push_back({m_next, 0});
    if (m_segments.size() == 1) m_read = m_accepted = {m_next, 0};
    m_writing = std::move(file);
    return true;
}

bool Spool::append(std::string_view lines, uint64_t next) {
    const bool full = m_writing && m_segments.back().size >= m_segment_bytes;
    if ((!m_writing || full) && !begin_segment()) return false;
    while (m_segments.size() > 1 && m_bytes + lines.size() > m_max_bytes)
        drop_oldest();
    Segment& last = m_segments.back();
    const ssize_t written = write(m_writing.get(), lines.data(), lines.size());
    if (written != static_cast<ssize_t>(lines.size())) {
        const int error = written < 0 ? errno : ENOSPC;
        // Where half a line can't be taken back, the next try gets a new file.
        if (written > 0 && ftruncate(m_writing.get(), static_cast<off_t>(last.size)) < 0)
            m_writing = OwnedFd();
        return failed("write to", error);
    }
    last.size += lines.size();
    m_bytes += lines.size();
    m_next = next;
    return true;
}

void Spool::drop_oldest() {
    const uint64_t first = m_segments[0].first;
    const uint64_t end = m_segments[1].first;
    const auto count = [](uint64_t from, uint64_t to) { return to > from ? to - from : 0; };
    m_orphans += count(std::max(first, m_accepted_number), std::min(end, m_read_number));
    if (m_read.segment <= first) m_dropped += count(std::max(first, m_read_number), end);
    remove_oldest();
}

void Spool::remove_oldest() {
    const Segment& oldest = m_segments.front();
    unlinkat(m_folder.get(), name_of(oldest.first).c_str(), 0);
    m_bytes -= oldest.size;
    m_segments.pop_front();
    if (m_segments.empty()) return;
    const Position front{m_segments.front().first, 0};
    if (m_read.segment < front.segment) m_read = front;
    if (m_accepted.segment < front.segment) m_accepted = front;
}

/** Whole lines from where we are; empty at the end of the segment. */
std::string Spool::chunk(const Segment& segment, size_t max_bytes) {
    const OwnedFd file = open_segment(segment.first);
    const uint64_t left = segment.size - m_read.offset;
    std::string out =
        read_all(file.get(), m_read.offset, std::min<uint64_t>(left, std::max(max_bytes, LONGEST_RECORD)));
    size_t end = out.rfind('\n', max_bytes - 1);
    if (end == std::string::npos) end = out.find('\n');
    if (end != std::string::npos) out.resize(end + 1);
    m_read.offset = out.empty() ? segment.size : m_read.offset + out.size();  // empty: the file is gone
    return out;
}

/** Leaves the records and drops the last line's end. */
void Spool::keep_records(std::string& lines) {
    size_t kept = 0;
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = std::min(lines.find('\n', begin), lines.size());
        const uint64_t number = record_number(std::string_view(lines).substr(begin, end - begin));
        const size_t length = std::min(end + 1, lines.size()) - begin;
        if (number > 0) {
            m_read_number = number + 1;
            std::copy_n(lines.begin() + static_cast<ptrdiff_t>(begin), length,
                        lines.begin() + static_cast<ptrdiff_t>(kept));
            kept += length;
        } else {
            m_rubbish++;
        }
        begin += length;
    }
    lines.resize(kept);
    if (lines.ends_with('\n')) lines.pop_back();
}

bool Spool::read(size_t max_bytes, std::string& lines) {
    lines.clear();
    int pieces = 0;
    for (size_t i = 0; i < m_segments.size() && lines.empty() && pieces < PIECES;) {
        const Segment& segment = m_segments[i];
        if (segment.first < m_read.segment || m_read.offset >= segment.size) {
            if (++i < m_segments.size() && m_segments[i].first > m_read.segment)
                m_read = {m_segments[i].first, 0};
            continue;
        }
        lines = chunk(segment, max_bytes);
        pieces++;
        keep_records(lines);
    }
    return !lines.empty();
}

void Spool::rewind() {
    m_read = m_accepted;
    m_read_number = m_accepted_number;
    m_dropped += std::exchange(m_orphans, 0);
}

void Spool::accept() {
    m_accepted = m_read;
    m_accepted_number = m_read_number;
    m_orphans = 0;
    if (m_segments.empty()) return;
    const Segment& last = m_segments.back();
    const bool all = m_accepted == Position{last.first, last.size};
    if (all && last.size >= WORTH_REMOVING && begin_segment()) m_read = m_accepted = {m_next, 0};
    while (m_segments.front().first < m_accepted.segment)
        remove_oldest();
}

uint64_t Spool::waiting_bytes() const {
    return m_bytes - std::min(m_bytes, m_accepted.offset);
}

bool Spool::save() {
    if (m_accepted == m_saved) return true;
    const std::string note =
        std::to_string(m_accepted.segment) + " " + std::to_string(m_accepted.offset) + "\n";
    OwnedFd file(openat(m_folder.get(), NEW_NOTE,
                        O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0640));
    if (!file || write(file.get(), note.data(), note.size()) != static_cast<ssize_t>(note.size()) ||
        renameat(m_folder.get(), NEW_NOTE, m_folder.get(), NOTE) < 0)
        return failed("note the progress of", errno);
    m_saved = m_accepted;
    return true;
}

}  // namespace corvo::engine
