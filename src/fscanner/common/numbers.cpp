#include "fscanner/common/numbers.h"

namespace fscanner {

int compressInt(unsigned long long value, char* buf, int size) {
    int at = size - 1;
    buf[at] = static_cast<char>((value & 0x7F) << 1);
    while ((value >>= 7) != 0) buf[--at] = static_cast<char>((value & 0x7F) << 1 | 1);
    return at;
}

void setBit(unsigned char index, char* bits) {
    char& byte = bits[index >> 3];
    byte = static_cast<char>(static_cast<unsigned char>(byte) | (0x80u >> (index & 7)));
}

int hash(const wchar_t* s, int n) {
    unsigned h = 0;
    do {
        h = hashStep(h, *s);
    } while (*s++ != 0);
    return hash(h, n);
}

int hash(unsigned v, int n) {
    const int remainder = static_cast<int>(v) % n;
    return remainder < 0 ? remainder + n : remainder;
}

namespace {

template <typename T>
wchar_t* writeDecimal(T v, wchar_t* out) {
    int digits = 1;
    for (T rest = v / 10; rest != 0; rest /= 10) ++digits;
    out[digits] = 0;
    for (int at = digits - 1; at >= 0; --at, v /= 10) out[at] = static_cast<wchar_t>(L'0' + v % 10);
    return out;
}

}  // namespace

wchar_t* wcs_itoa(unsigned v, wchar_t* out) {
    static wchar_t own[11];
    return writeDecimal(v, out != nullptr ? out : own);
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

unsigned long long decompressInt(const char* bytes) {
    unsigned long long value = 0;
    unsigned byte;
    do {
        byte = static_cast<unsigned char>(*bytes++);
        value = value << 7 | byte >> 1;
    } while ((byte & 1) != 0);
    return value;
}

bool checkBit(unsigned char index, const char* bits) {
    return (static_cast<unsigned char>(bits[index >> 3]) & (0x80u >> (index & 7))) != 0;
}

wchar_t* wcs_itoa64(unsigned long long v, wchar_t* out) {
    static wchar_t own[21];
    return writeDecimal(v, out != nullptr ? out : own);
}

}  // namespace fscanner
