// File path splitting and trailing separators.
#include "Path"

#include <cstring>

bool ParseFullPath(const char* path, CString& dir, CString& name) {
    CString whole(path);
    int slash = whole.ReverseFind('/');
    int backslash = whole.ReverseFind('\\');
    int sep = slash > backslash ? slash : backslash;
    if (sep < 0) {
        name = whole;
        dir.Empty();
    } else {
        name = whole.Mid(sep + 1);
        dir = whole.Left(sep) + "/";
    }
    if (name == "." || name == "..") {
        dir = whole;
        name.Empty();
    }
    return true;
}

CString SGetFilePath(const char* path, const char* fallback) {
    CString dir(fallback), name;
    ParseFullPath(path, dir, name);
    return dir;
}

CString SGetFileName(const char* path, const char* fallback) {
    CString dir, name(fallback);
    ParseFullPath(path, dir, name);
    return name;
}

bool hasTralingSlash(const char* text) {
    size_t n = text == nullptr ? 0 : strlen(text);
    return n > 0 && (text[n - 1] == '/' || text[n - 1] == '\\');
}

CString addTrailingSlash(const char* text) {
    CString s(text);
    if (!hasTralingSlash(text)) s += '\\';
    return s;
}

CString stripTrailingSlash(const char* text) {
    CString s(text);
    if (hasTralingSlash(text)) return s.Left(s.GetLength() - 1);
    return s;
}
