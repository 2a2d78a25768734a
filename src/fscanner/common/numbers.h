#pragma once

namespace fscanner {

/// Writes the compact encoding of `value` to the end of `buf` (`size` bytes, at
/// least 10) and returns the index of its first byte.
///
/// The encoding is a row of 7-bit groups, most significant first. Each group is in
/// the upper seven bits of its byte; the low bit is 1 in every byte but the last.
int compressInt(unsigned long long value, char* buf, int size);

/// Sets bit `index` of a bitmap of at most 256 bits. Bit 0 is the most significant bit of
/// byte 0.
void setBit(unsigned char index, char* bits);

/// The hash of a text so far, continued with its next character.
inline unsigned hashStep(unsigned h, wchar_t c) {
    return h * 37 + static_cast<unsigned>(c);
}
/// The bucket of a text, 0 to n-1, for n > 0. The terminator is hashed too. Index
/// files depend on the result.
int hash(const wchar_t* s, int n);
/// The bucket of a number, which is taken as a signed 32-bit integer.
int hash(unsigned v, int n);

/// Writes the number in decimal, with a terminator, to `out` and returns it. `out` has
/// room for 11 characters. A null `out` stands for a static buffer: then only one thread
/// may call.
wchar_t* wcs_itoa(unsigned v, wchar_t* out);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Reverses `compressInt`: decodes from the start, up to and including the first byte whose low
/// bit is 0. Reads without a limit: the caller guarantees that there is such a byte.
unsigned long long decompressInt(const char* bytes);
/// Whether `setBit` set bit `index`.
bool checkBit(unsigned char index, const char* bits);
/// Like `wcs_itoa`, with room for 21 characters.
wchar_t* wcs_itoa64(unsigned long long v, wchar_t* out);

}  // namespace fscanner
