#pragma once
// Base64 of RFC 4648: the alphabet with + and /, = padding, no line breaks.

#include <array>
#include <string>

/** Maps values to characters. */
extern const char basis_64[65];
/** Maps characters to values; 64 for everything outside the alphabet. */
extern const std::array<unsigned char, 256> pr2six;

/** Buffer size for the encoded text of `len` bytes, including the NUL. */
int b64_elen(int len);
/** Buffer size for the decoded bytes of `in`, including a NUL. */
int b64_dlen(const char* in);

/** Writes the text and a NUL. Returns the size written, including the NUL. */
int b64_encode(char* out, const char* in, int len);
std::string b64_encode(const char* in, unsigned len);
std::string b64_encode(const std::string& in);

/**
 * Decodes up to the first character outside the alphabet, such as a NUL, a line break or padding. Writes the
 * bytes and a NUL. Returns the number of bytes, not including the NUL.
 */
int b64_decode(char* out, const char* in);
std::string b64_decode(const std::string& in);
