// Hexadecimal text of byte strings.
#include "Encoding"

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
