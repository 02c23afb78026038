// Hexadecimal text of byte strings, both ways.
#include "Encoding"

#include <climits>
#include <cstring>

const char DEC2HEX[17] = "0123456789ABCDEF";

namespace {
constexpr struct HexTable {
    unsigned char value[256];
    constexpr HexTable() : value() {
        for (int c = 0; c < 256; ++c) value[c] = 255;
        for (int d = 0; d < 10; ++d) value['0' + d] = static_cast<unsigned char>(d);
        for (int d = 0; d < 6; ++d) {
            value['A' + d] = static_cast<unsigned char>(10 + d);
            value['a' + d] = static_cast<unsigned char>(10 + d);
        }
    }
} kHex;

// Converts the pair at `text` into *out: false for a character that is not a hexadecimal digit.
bool pairToByte(const char* text, unsigned char* out) {
    unsigned char high = kHex.value[static_cast<unsigned char>(text[0])];
    unsigned char low = kHex.value[static_cast<unsigned char>(text[1])];
    if (high == 255 || low == 255) return false;
    *out = static_cast<unsigned char>(high * 16 + low);
    return true;
}

// "%XY" (or "XY" without the percent) for every byte of a zero-terminated text.
CString hexOfText(const unsigned char* text, bool percent) {
    size_t n = text == nullptr ? 0 : strlen(reinterpret_cast<const char*>(text));
    size_t per = percent ? 3 : 2;
    if (n > static_cast<size_t>(INT_MAX - 64) / per) return CString();
    CString out;
    char* p = out.GetBuffer(static_cast<int>(n * per));
    for (size_t i = 0; i < n; ++i) {
        if (percent) *p++ = '%';
        *p++ = DEC2HEX[text[i] >> 4];
        *p++ = DEC2HEX[text[i] & 15];
    }
    out.ReleaseBuffer(static_cast<int>(n * per));
    return out;
}
}  // namespace

const unsigned char (&HEX2DEC)[256] = kHex.value;

int HexToBin(const char* text, unsigned char* out, unsigned int max) {
    if (text == nullptr) return 0;
    size_t pairs = strlen(text) / 2;
    for (size_t i = 0; i < pairs; ++i) {
        if (i >= max) return -1;
        if (!pairToByte(text + 2 * i, &out[i])) return -2;
    }
    return 0;
}

int HexToBinReverse(const char* text, unsigned char* out, unsigned int max) {
    if (text == nullptr) return 0;
    size_t pairs = strlen(text) / 2;
    size_t n = pairs < max ? pairs : max;
    for (size_t i = 0; i < n; ++i)
        if (!pairToByte(text + 2 * i, &out[n - 1 - i])) return -2;
    return 0;
}

CString encodeToHex(const unsigned char* text) { return hexOfText(text, true); }
CString encodeToHexWithoutPercent(const unsigned char* text) { return hexOfText(text, false); }

CString BinToHex(const void* bytes, unsigned int length, unsigned int flags) {
    static const char kDigits[] = "0123456789abcdef";
    const unsigned char* p = static_cast<const unsigned char*>(bytes);
    if (p == nullptr || length == 0) return CString();

    if (flags & BINTOHEX_DUMP) {
        CString result, hexColumn, charColumn;
        for (unsigned int i = 0; i < length; ++i) {
            if (i > 0 && i % 8 == 0) {
                hexColumn += "  ";
                charColumn += " ";
                if (i % 16 == 0) {
                    CString line;
                    line.Format("%s  %s\n", static_cast<const char*>(hexColumn), static_cast<const char*>(charColumn));
                    result += line;
                    hexColumn.Empty();
                    charColumn.Empty();
                }
            }
            const char hex[4] = {kDigits[p[i] >> 4], kDigits[p[i] & 15], ' ', '\0'};
            hexColumn += hex;
            CString shown;
            if (p[i] >= 32 && p[i] <= 127)
                shown.Format("%c", p[i]);  // stops the process, as documented above
            else
                shown = ".";
            charColumn += shown;
        }
        if (!hexColumn.IsEmpty()) {
            int pad = 52 - hexColumn.GetLength();
            CString line;
            line.Format("%s%s  %s\n", static_cast<const char*>(hexColumn),
                        static_cast<const char*>(CString(' ', pad)), static_cast<const char*>(charColumn));
            result += line;
        }
        return result;
    }

    int per = (flags & BINTOHEX_SPACED) ? 3 : 2;
    if (length > 0x7FFFFFFFu / 3) return CString();
    CString out;
    char* q = out.GetBuffer(static_cast<int>(length) * per);
    for (unsigned int i = 0; i < length; ++i) {
        *q++ = kDigits[p[i] >> 4];
        *q++ = kDigits[p[i] & 15];
        if (per == 3) *q++ = ' ';
    }
    out.ReleaseBuffer(static_cast<int>(length) * per);
    return out;
}
