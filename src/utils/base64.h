#pragma once
// Base64 of RFC 4648: the alphabet with + and /, = padding, no line breaks.

#include <array>
#include <string>

/** Value to character. */
extern const char basis_64[65];
/** Character to value; 64 for everything outside the alphabet. */
extern const std::array<unsigned char, 256> pr2six;

/** Buffer size for the text of `len` bytes, the NUL counted. */
int b64_elen(int len);
/** Buffer size for the bytes of `in`, a NUL counted. */
int b64_dlen(const char* in);

/** Writes the text and a NUL; gives the size written, the NUL counted. */
int b64_encode(char* out, const char* in, int len);
std::string b64_encode(const char* in, unsigned len);
std::string b64_encode(const std::string& in);

/**
 * Decodes up to the first character outside the alphabet, be it NUL, line break or padding. Writes the bytes
 * and a NUL; gives the number of bytes, the NUL not counted.
 */
int b64_decode(char* out, const char* in);
std::string b64_decode(const std::string& in);
