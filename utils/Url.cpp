// URL splitting.
#include "Url"

#include <cstring>

namespace {
struct Scheme {
    const char* prefix;
    unsigned int scheme;
    unsigned int port;
};
const Scheme kSchemes[] = {
    {"http://", URL_SCHEME_HTTP, 80},
    {"https://", URL_SCHEME_HTTPS, 443},
    {"ftp://", URL_SCHEME_FTP, 21},
    {"file://", URL_SCHEME_FILE, 0},
};
}  // namespace

bool ParseURL_BASIC(const char* url, unsigned int& scheme, CString& host, CString& path, unsigned int& port) {
    CString rest(url);
    rest.TrimLeft();
    rest.TrimRight();
    CString lower(rest);
    lower.MakeLower();

    scheme = URL_SCHEME_NONE;
    port = 0;
    for (const Scheme& s : kSchemes) {
        int n = static_cast<int>(strlen(s.prefix));
        if (strncmp(lower, s.prefix, static_cast<size_t>(n)) == 0) {
            scheme = s.scheme;
            port = s.port;
            rest = rest.Mid(n);
            break;
        }
    }

    int sep = rest.FindOneOf("/\\");
    CString authority = sep < 0 ? rest : rest.Left(sep);
    path = sep < 0 ? CString("/") : rest.Mid(sep);

    int colon = authority.Find(':');
    host = colon < 0 ? authority : authority.Left(colon);
    if (host.IsEmpty()) return false;
    if (colon < 0) return true;

    CString digits = authority.Mid(colon + 1);
    unsigned int value = 0;
    if (digits.IsEmpty() || digits.GetLength() > 5) return false;
    for (int i = 0; i < digits.GetLength(); ++i) {
        if (digits[i] < '0' || digits[i] > '9') return false;
        value = value * 10 + static_cast<unsigned int>(digits[i] - '0');
    }
    if (value == 0 || value > 65535) return false;
    port = value;
    return true;
}
