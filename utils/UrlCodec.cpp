// URL percent-encoding, both ways.
#include <cctype>
#include <climits>

#include "Encoding"

CString URLEncode(const CString& s) {
    long long room = 3LL * s.GetLength();
    if (room > INT_MAX - 64) return CString();  // more than a CString can hold: the empty result
    CString out;
    char* p = out.GetBuffer(static_cast<int>(room));
    for (int i = 0; i < s.GetLength(); ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (isalnum(c)) {
            *p++ = static_cast<char>(c);
        } else {
            *p++ = '%';
            *p++ = DEC2HEX[c >> 4];
            *p++ = DEC2HEX[c & 15];
        }
    }
    out.ReleaseBuffer(static_cast<int>(p - static_cast<const char*>(out)));
    return out;
}

CString URLDecode(const CString& s) {
    int n = s.GetLength();
    if (n < 2) return s;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(static_cast<const char*>(s));
    CString out;
    char* p = out.GetBuffer(n);
    int i = 0;
    while (i < n - 2) {
        if (in[i] == '%' && HEX2DEC[in[i + 1]] != 255 && HEX2DEC[in[i + 2]] != 255) {
            *p++ = static_cast<char>(HEX2DEC[in[i + 1]] * 16 + HEX2DEC[in[i + 2]]);
            i += 3;
        } else {
            *p++ = static_cast<char>(in[i++]);
        }
    }
    while (i < n) *p++ = static_cast<char>(in[i++]);  // the last two are never decoded
    out.ReleaseBuffer(static_cast<int>(p - static_cast<const char*>(out)));
    return out;
}
