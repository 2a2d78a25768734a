#pragma once

namespace fscanner {

/// Writes the compact encoding of `value` so that it ends at the last byte of
/// `buf` (`size` bytes, at least 10) and returns the index of its first byte.
/// 7-bit groups, most significant first, each in the upper seven bits of its
/// byte; the low bit is 1 in every byte but the last.
int compressInt(unsigned long long value, char* buf, int size);
/// Decodes from the start, up to and including a byte whose low bit is 0, which
/// the caller guarantees to be there.
unsigned long long decompressInt(const char* bytes);

/// Bit `index` of a map of at most 256 bits, most significant bit of byte 0 first.
bool checkBit(unsigned char index, const char* bits);
void setBit(unsigned char index, char* bits);

/// What a text's hash becomes by its next character.
inline unsigned hashStep(unsigned h, wchar_t c) {
    return h * 37 + static_cast<unsigned>(c);
}
/// Bucket of a text, 0 to n-1, for n > 0. The terminator counts: a last step times 37.
int hash(const wchar_t* s, int n);
/// Bucket of a number taken as a signed 32-bit integer.
int hash(unsigned v, int n);

/// Decimal digits, terminated. With `out` null they go to a static buffer,
/// which is returned (not reentrant). `out` holds 11 and 21 characters.
wchar_t* wcs_itoa(unsigned v, wchar_t* out);
wchar_t* wcs_itoa64(unsigned long long v, wchar_t* out);

}  // namespace fscanner
