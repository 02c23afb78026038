// CRFCBase64: base64 encoding and decoding.
//
// Both directions write straight into a buffer sized once for the whole result. Encoding turns each
// 12-bit half of a three-byte group into two digits with one table look-up. Decoding takes four digits
// at a time through four tables that hold each digit's bits already in place, and drops to a
// digit-by-digit walk only where the text holds something else (pad, blanks, junk, or its end).
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include "Encoding"
#include "StrFormat"

namespace {

constexpr unsigned char kNotDigit = 127;
// A mark above the 24 data bits: the byte is not a digit.
constexpr uint32_t kInvalid = 0x01000000u;

struct Tables {
    unsigned char xlate[256];
    char pairs[4096][2];  // two digits for every 12-bit value
    uint32_t shifted[4][256];  // digit value moved to its place in a 24-bit group, or kInvalid
};

constexpr Tables makeTables() {
    const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Tables t{};
    for (int c = 0; c < 256; ++c) t.xlate[c] = kNotDigit;
    for (int v = 0; v < 64; ++v) t.xlate[static_cast<unsigned char>(digits[v])] = static_cast<unsigned char>(v);
    for (int v = 0; v < 4096; ++v) {
        t.pairs[v][0] = digits[v >> 6];
        t.pairs[v][1] = digits[v & 63];
    }
    for (int c = 0; c < 256; ++c) {
        for (int k = 0; k < 4; ++k) {
            unsigned v = t.xlate[c];
            t.shifted[k][c] = v < 64 ? v << (18 - 6 * k) : kInvalid;
        }
    }
    return t;
}

constexpr Tables kTables = makeTables();

// Decodes the `length` bytes of `text` into `out`, which has room for length * 3 / 4 + 2 bytes.
// Returns the number of bytes written. Stops at the first byte with the high bit set.
size_t decodeInto(const unsigned char* text, size_t length, unsigned char* out) {
    const unsigned char* p = text;
    const unsigned char* end = text + length;
    unsigned char* o = out;
    uint32_t bits = 0;
    int count = 0;  // digits in `bits`
    for (;;) {
        // Four clean digits at a time while no partial group is pending.
        if (count == 0) {
            while (end - p >= 4) {
                uint32_t v = kTables.shifted[0][p[0]] | kTables.shifted[1][p[1]] | kTables.shifted[2][p[2]] |
                             kTables.shifted[3][p[3]];
                if (v & kInvalid) break;
                o[0] = static_cast<unsigned char>(v >> 16);
                o[1] = static_cast<unsigned char>(v >> 8);
                o[2] = static_cast<unsigned char>(v);
                o += 3;
                p += 4;
            }
        }
        if (p == end || (*p & 0x80) != 0) break;
        unsigned char v = kTables.xlate[*p++];
        if (v >= 64) continue;
        bits = (bits << 6) | v;
        if (++count == 4) {
            o[0] = static_cast<unsigned char>(bits >> 16);
            o[1] = static_cast<unsigned char>(bits >> 8);
            o[2] = static_cast<unsigned char>(bits);
            o += 3;
            bits = 0;
            count = 0;
        }
    }
    if (count == 2) {
        *o++ = static_cast<unsigned char>(bits >> 4);
    } else if (count == 3) {
        *o++ = static_cast<unsigned char>(bits >> 10);
        *o++ = static_cast<unsigned char>(bits >> 2);
    }
    return static_cast<size_t>(o - out);
}

// Room a decode of `length` text bytes may need; refuses what a CString or CArray cannot hold.
int decodeRoom(size_t length) {
    size_t room = length / 4 * 3 + 3;
    if (room > static_cast<size_t>(INT_MAX) - 64) throw std::bad_alloc();
    return static_cast<int>(room);
}

}  // namespace

const char CRFCBase64::g_digits[66] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
const unsigned char (&CRFCBase64::g_xlate)[256] = kTables.xlate;
bool CRFCBase64::g_bInitialized = true;  // the table is built at compile time

int CRFCBase64::Encode(const unsigned char* bytes, int length, CString& out) {
    if (bytes == nullptr || length <= 0) return 0;
    long long added = (static_cast<long long>(length) + 2) / 3 * 4;
    long long total = out.GetLength() + added;
    if (total > INT_MAX - 64) throw std::bad_alloc();
    int old = out.GetLength();
    char* p = out.GetBuffer(static_cast<int>(total)) + old;

    int i = 0;
    // Six bytes at a time out of one 8-byte load (the two spare bytes are read, never used).
    for (; i + 8 <= length; i += 6) {
        uint64_t v;
        memcpy(&v, bytes + i, 8);
        v = __builtin_bswap64(v);
        memcpy(p, kTables.pairs[(v >> 52) & 0xFFF], 2);
        memcpy(p + 2, kTables.pairs[(v >> 40) & 0xFFF], 2);
        memcpy(p + 4, kTables.pairs[(v >> 28) & 0xFFF], 2);
        memcpy(p + 6, kTables.pairs[(v >> 16) & 0xFFF], 2);
        p += 8;
    }
    for (; i + 3 <= length; i += 3) {
        uint32_t v = (static_cast<uint32_t>(bytes[i]) << 16) | (static_cast<uint32_t>(bytes[i + 1]) << 8) | bytes[i + 2];
        memcpy(p, kTables.pairs[v >> 12], 2);
        memcpy(p + 2, kTables.pairs[v & 0xFFF], 2);
        p += 4;
    }
    if (length - i == 1) {
        uint32_t v = static_cast<uint32_t>(bytes[i]) << 4;
        memcpy(p, kTables.pairs[v], 2);
        memcpy(p + 2, "==", 2);
    } else if (length - i == 2) {
        uint32_t v = ((static_cast<uint32_t>(bytes[i]) << 8) | bytes[i + 1]) << 2;
        memcpy(p, kTables.pairs[v >> 6], 2);
        p[2] = g_digits[v & 63];
        p[3] = '=';
    }
    out.ReleaseBuffer(static_cast<int>(total));
    return static_cast<int>(added);
}

int CRFCBase64::Decode(const char* text, CArray<unsigned char, unsigned char>& out) {
    if (text == nullptr) return 0;
    size_t length = strlen(text);
    int old = out.GetSize();
    int room = decodeRoom(length);
    if (static_cast<long long>(old) + room > INT_MAX) throw std::bad_alloc();
    out.SetSize(old + room);
    size_t n = decodeInto(reinterpret_cast<const unsigned char*>(text), length, out.GetData() + old);
    out.SetSize(old + static_cast<int>(n));
    return static_cast<int>(n);
}

CString CRFCBase64::Decode(const char* text) {
    CString out;
    if (text == nullptr) return out;
    size_t length = strlen(text);
    char* buffer = out.GetBuffer(decodeRoom(length));
    size_t n = decodeInto(reinterpret_cast<const unsigned char*>(text), length, reinterpret_cast<unsigned char*>(buffer));
    out.ReleaseBuffer(static_cast<int>(n));
    if (n == 0) out.Empty();
    return out;
}

int CRFCBase64::Decode(const char* text, CString& out) {
    CString bytes = Decode(text);
    out = CString(bytes, static_cast<int>(strnlen(bytes, static_cast<size_t>(bytes.GetLength()))));
    return bytes.GetLength();
}

CString CRFCBase64::Decode(const char* text, unsigned int code) {
    CString bytes = Decode(text);
    if (bytes.IsEmpty()) return bytes;
    return createString(code, bytes, bytes.GetLength(), "");
}
