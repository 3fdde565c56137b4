#pragma once
// Text for signal context: assembled within a byte budget, without heap, locale or stdio, and written
// with `write`.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

/**
 * Appends `text` to the C string `dst` if it isn't longer than `left`, and subtracts its length from `left`,
 * which doesn't include the terminator's byte. False if it didn't fit; nothing has changed then.
 */
bool add_to_buf(char* dst, const char* text, unsigned int& left);
/** Likewise with the signal's description, such as "Segmentation fault". */
bool signum_to_signame(int signum, char* dst, unsigned int& left);
/** The description itself; never null. */
const char* signal_description(int signum);

/** Before a frame of a stack that is only a guess, as the kernel marks them. */
inline constexpr char GUESS_MARK[] = "? ";

/** The decimal text of a number. */
class DecimalText {
 public:
    explicit DecimalText(int64_t value);
    const char* c_str() const { return m_begin; }

 private:
    char m_text[24];
    char* m_begin;
};

/** Writes everything despite interruptions. False if the descriptor fails. */
bool write_all(int fd, const char* text, size_t size);
/** The same for a C string. */
bool write_all(int fd, const char* text);

}  // namespace corvo::server
