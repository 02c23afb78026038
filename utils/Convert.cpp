// Checked conversions of text to values.
//
// Each function runs inside the library's catch frame: a rejection is raised as a UException (which
// logs itself), caught here, logged again as caught while the log level is above 0, and answered with
// the caller's default.
#include "Convert"

#include <cstdio>
#include <cstring>

#include "ErrorLog"
#include "Exception"
#include "StrFormat"

namespace {

template <class T, class Body>
T catchToDefault(const char* site, unsigned int line, T fallback, Body body) {
    try {
        return body();
    } catch (UException& e) {
        if (errorLog != nullptr && errorLog->GetLogLevel() > 0) UException(e).WriteCaught(site, line);
    } catch (...) {
        if (errorLog != nullptr && errorLog->GetLogLevel() > 0) WriteUnknownExceptionCaught(site, line);
    }
    return fallback;
}

[[noreturn]] void reject(const char* place, unsigned int line, const char* reason, const char* detail = nullptr) {
    if (detail == nullptr) throw UException(-1, "", place, line, "EXCEPTION - %s", reason);
    throw UException(-1, "", place, line, "EXCEPTION - %s, %s", reason, detail);
}

CString trimmed(const char* text) {
    CString s(text);
    s.TrimLeft();
    s.TrimRight();
    return s;
}

bool onlyDigitsAndMinus(const CString& s) {
    return !s.IsEmpty() && strspn(s, "0123456789-") == static_cast<size_t>(s.GetLength());
}

// Reads a number that passed the character test; the fallback stays when the text holds none.
template <class T>
T readNumber(const char* text, const char* format, T fallback, bool* ok) {
    if (ok != nullptr) *ok = false;
    CString s = trimmed(text);
    if (!onlyDigitsAndMinus(s)) return fallback;
    T value = fallback;
    sscanf(s, format, &value);
    if (ok != nullptr) *ok = true;
    return value;
}

}  // namespace

bool isNumber(const char* text) {
    return catchToDefault("isNumber()", __LINE__, false, [&] { return onlyDigitsAndMinus(trimmed(text)); });
}

int toInt(const char* text, int fallback, bool* ok) {
    return catchToDefault("toInt()", __LINE__, fallback, [&] { return readNumber(text, "%d", fallback, ok); });
}

long toINT64(const char* text, long fallback, bool* ok) {
    return catchToDefault("toINT64()", __LINE__, fallback,
                          [&] { return static_cast<long>(readNumber<long long>(text, "%lld", fallback, ok)); });
}

unsigned long toUINT64(const char* text, unsigned long fallback, bool* ok) {
    return catchToDefault("toUINT64()", __LINE__, fallback, [&] {
        return static_cast<unsigned long>(readNumber<unsigned long long>(text, "%llu", fallback, ok));
    });
}

unsigned int toDWORD(const char* text, unsigned int fallback, bool* ok) {
    if (ok != nullptr) *ok = false;
    return catchToDefault("toDWORD()", __LINE__, fallback, [&] {
        if (text == nullptr) reject("toDWORD()", __LINE__, "a_str is NULL");
        CString s = trimmed(text);
        if (s.IsEmpty()) reject("toDWORD()", __LINE__, "a_str is empty string");

        size_t run = strspn(s, "0123456789-");
        if (run > 11) reject("toDWORD()", __LINE__, "invalid a_str", s);
        unsigned int result;
        if (run == static_cast<size_t>(s.GetLength())) {
            long long value = 0;
            if (sscanf(s, "%lli", &value) != 1) reject("toDWORD()", __LINE__, "invalid a_str", s);
            if (value < -2147483648LL || value > 4294967295LL) reject("toDWORD()", __LINE__, "out of range a_str", s);
            result = static_cast<unsigned int>(value);
        } else {
            size_t hex = strspn(s, "Xx0123456789ABCDEFabcdef");
            if (hex < 3 || hex > 10 || hex != static_cast<size_t>(s.GetLength()) || s[0] != '0' ||
                (s[1] != 'x' && s[1] != 'X') || sscanf(s, "%x", &result) != 1)
                reject("toDWORD()", __LINE__, "invalid a_str", s);
        }
        if (ok != nullptr) *ok = true;
        return result;
    });
}

bool toBool(const char* text, bool fallback) {
    // The catch site keeps the name "toInt()" here: support engineers grep for it.
    return catchToDefault("toInt()", __LINE__, fallback, [&] {
        if (text == nullptr) reject("toBool()", __LINE__, "a_str is NULL");
        CString s = trimmed(text);
        if (s.IsEmpty()) reject("toBool()", __LINE__, "input value is empty string");
        if (s.CompareNoCase("true") == 0) return true;
        if (s.CompareNoCase("false") == 0) return false;
        reject("toBool()", __LINE__, "unknow value, expected 'true' or 'false'");
    });
}

unsigned int strIPtoDWORD(const char* text, unsigned int fallback, bool* ok) {
    if (ok != nullptr) *ok = false;
    return catchToDefault("strIPtoDWORD()", __LINE__, fallback, [&] {
        if (text == nullptr || *text == '\0') return fallback;
        unsigned int part[4];
        char rest[10];
        if (sscanf(text, "%3u.%3u.%3u.%3u%9s", &part[0], &part[1], &part[2], &part[3], rest) != 4) return fallback;
        for (unsigned int p : part)
            if (p > 255) return fallback;
        if (ok != nullptr) *ok = true;
        return part[0] << 24 | part[1] << 16 | part[2] << 8 | part[3];
    });
}

CString IPv4toString(unsigned int address) {
    char text[16];
    int n = snprintf(text, sizeof text, "%u.%u.%u.%u", address & 0xFF, (address >> 8) & 0xFF, (address >> 16) & 0xFF,
                     address >> 24);
    return CString(text, n);
}

int mask2plen(const unsigned char* mask, int byteCount, unsigned char* prefixLength) {
    return catchToDefault("mask2plen", __LINE__, -1, [&] {
        if (mask == nullptr || prefixLength == nullptr) reject("mask2plen", __LINE__, "Invalid parameter");
        if (byteCount < 0 || byteCount > 16)
            reject("mask2plen", __LINE__, sfmt("%1, %2", "Incorrect byte count", byteCount));
        int bits = 0;
        for (int i = 0; i < byteCount; ++i) {
            switch (mask[i]) {
                case 0: case 128: case 192: case 224: case 240: case 248: case 252: case 254: case 255:
                    bits += __builtin_popcount(mask[i]);
                    break;
                default:
                    reject("mask2plen", __LINE__, sfmt("%1, %2", "Invalid byte", i));
            }
        }
        *prefixLength = static_cast<unsigned char>(bits);
        return 0;
    });
}
