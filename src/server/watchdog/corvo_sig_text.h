#pragma once
// Text for signal context: built within a byte budget, without heap, locale or stdio, written by `write`.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

/**
 * Appends `text` to the C string `dst` if it isn't longer than `left`, and then takes its length off `left`.
 * `left` doesn't count the byte of the terminator. False: it didn't fit and nothing has changed.
 */
bool add_to_buf(char* dst, const char* text, unsigned int& left);
/** The same with the signal's description, "Segmentation fault" and the like. */
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

/** Writes all of it, whatever interrupts. False: the descriptor refused. */
bool write_all(int fd, const char* text, size_t size);
/** The same with a C string. */
bool write_all(int fd, const char* text);

}  // namespace corvo::server
