// Value-to-text conversions and small text edits.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "ErrorLog"
#include "StrFormat"

CString SFormat(const char* format, ...) {
    CString s;
    va_list args;
    va_start(args, format);
    s.FormatV(format, args);
    va_end(args);
    return s;
}

namespace {
// snprintf of one number into a stack buffer: the same text as SFormat, without the sizing pass.
template <class T>
CString number(const char* format, T value) {
    char buffer[32];
    int n = snprintf(buffer, sizeof buffer, format, value);
    return CString(buffer, n);
}
}  // namespace

CString toHex(unsigned long value) { return SFormat("0x%qx", static_cast<unsigned long long>(value)); }
CString createString(unsigned long long value) { return number("%llu", value); }
CString createString(long long value) { return number("%lli", value); }
CString createString(bool value) { return CString(value ? "true" : "false"); }
CString createString(unsigned long value) { return number("%u", static_cast<unsigned int>(value)); }
CString createString(long value) { return number("%d", static_cast<int>(static_cast<unsigned int>(value))); }
CString createString(unsigned int value) { return number("%u", value); }
CString createString(unsigned short value) { return number("%u", static_cast<unsigned int>(value)); }
CString createString(unsigned char value) { return number("%u", static_cast<unsigned int>(value)); }
CString createString(int value) { return number("%d", value); }
CString createString(short value) { return number("%d", static_cast<int>(value)); }
CString createString(char value) { return SFormat("%c", value); }
CString createString(double value) { return SFormat("%lf", value); }
CString createString(float value) { return SFormat("%f", static_cast<double>(value)); }
CString createString(const void* value) { return SFormat("0x%p", value); }
CString createString(const CString& value) { return value; }
CString createString(const char* text) { return CString(text); }

CString createString(const char* text, int length, const char* fallback) {
    return createString(0u, text, length, fallback);
}

CString createString(unsigned int, const char* text, int length, const char* fallback) {
    if (text == nullptr) return CString(fallback);
    if (length == 0) length = -1;
    if (length < 0) return CString(text);
    const void* zero = memchr(text, '\0', static_cast<size_t>(length));
    int n = zero == nullptr ? length : static_cast<int>(static_cast<const char*>(zero) - text);
    return CString(text, n);
}

CString createString(const wchar_t* text, int length, const char* fallback) {
    if (text == nullptr) return CString(fallback);
    // The wide text to convert: `length` characters, or up to its zero when length is 0 or below.
    size_t count = length > 0 ? wcsnlen(text, static_cast<size_t>(length)) : wcslen(text);
    mbstate_t state{};
    size_t needed = 0;
    char scratch[MB_LEN_MAX];
    for (size_t i = 0; i < count; ++i) {
        size_t n = wcrtomb(scratch, text[i], &state);
        if (n == static_cast<size_t>(-1)) {
            if (errorLog != nullptr)
                errorLog->WriteLogStr(2, sfmt("Failed while obtaining buffer size (WideCharToMultiByte() error: %1)\n",
                                              errno));
            return CString(fallback);
        }
        needed += n;
    }
    if (needed > static_cast<size_t>(INT_MAX) - 64) return CString(fallback);
    CString out;
    char* buffer = out.GetBuffer(static_cast<int>(needed));
    state = mbstate_t{};
    size_t written = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t n = wcrtomb(buffer + written, text[i], &state);
        if (n == static_cast<size_t>(-1)) {
            if (errorLog != nullptr)
                errorLog->WriteLogStr(
                    2, sfmt("Failed to convert wide-char string to multi-byte (WideCharToMultiByte() error: %1)\n",
                            errno));
            return CString(fallback);
        }
        written += n;
    }
    out.ReleaseBuffer(static_cast<int>(written));
    return out;
}

void addToString(CString& s, const CString& text) { s += text; }
void addToString(CString& s, const char* text) {
    if (text != nullptr) s += text;
}
void addToString(CString& s, int value) { s += createString(value); }
void addToString(CString& s, unsigned int value) { s += createString(value); }

CString SReplace(const CString& s, const char* oldText, const char* newText) {
    CString copy(s);
    copy.Replace(oldText, newText);
    return copy;
}

CString SReplace(const CString& s, char oldChar, char newChar) {
    CString copy(s);
    copy.Replace(oldChar, newChar);
    return copy;
}

CString stripCR(const char* text) {
    int n = CString::SafeStrlen(text);
    CString out;
    char* p = out.GetBuffer(n);
    int kept = 0;
    for (int i = 0; i < n; ++i)
        if (text[i] != '\r' && text[i] != '\n') p[kept++] = text[i];
    out.ReleaseBuffer(kept);
    return out;
}
