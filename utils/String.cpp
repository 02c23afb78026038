// CString: construction, assignment, concatenation, searches and in-place edits.
// The sharing rules are written down in inc/String.
#include "String"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstddef>
#include <cstring>
#include <new>

#include "Platform"

namespace {

// The shared empty buffer: a header that says "locked, empty" followed by one zero byte.
struct EmptyBuffer {
    CString::CStringData header;
    char text[1];
};
static_assert(offsetof(EmptyBuffer, text) == sizeof(CString::CStringData),
              "the empty text must follow its header directly");

EmptyBuffer g_emptyBuffer = {{-1, 0, 0}, {0}};

// Longest text the class holds: header + characters + zero must fit an int-sized count.
constexpr long long kMaxLength = INT_MAX - static_cast<long long>(sizeof(CString::CStringData)) - 1;

int checkedLength(long long n) {
    if (n < 0 || n > kMaxLength) throw std::bad_alloc();
    return static_cast<int>(n);
}

bool pointsInto(const char* p, const char* begin, int length) {
    return p != nullptr && p >= begin && p <= begin + length;
}

}  // namespace

CString::CStringData* afxDataNil = &g_emptyBuffer.header;
char* afxPchNil = g_emptyBuffer.text;
const char afxChNil = 0;

const CString& AfxGetEmptyString() {
    static const CString empty;
    return empty;
}

int CString::SafeStrlen(const char* text) {
    return text == nullptr ? 0 : checkedLength(static_cast<long long>(strlen(text)));
}

// ---- internal steps ---------------------------------------------------------

void CString::Init() { m_pchData = afxPchNil; }

void CString::AllocBuffer(int n) {
    if (n == 0) {
        Init();
        return;
    }
    checkedLength(n);
    char* block = new char[sizeof(CStringData) + static_cast<size_t>(n) + 1];
    CStringData* data = new (block) CStringData{1, n, n};
    data->data()[n] = '\0';
    m_pchData = data->data();
}

void CString::Release(CStringData* data) {
    if (data != afxDataNil && InterlockedDecrement(&data->refs) < 1) {
        data->~CStringData();
        delete[] reinterpret_cast<char*>(data);
    }
}

void CString::Release() {
    Release(GetData());
    Init();
}

void CString::CopyBeforeWrite() {
    CStringData* old = GetData();
    if (old->refs > 1) {
        Release(old);  // another sharer keeps it alive
        AllocBuffer(old->dataLength);
        memcpy(m_pchData, old->data(), static_cast<size_t>(old->dataLength) + 1);
    }
}

void CString::AllocBeforeWrite(int n) {
    if (GetData()->refs > 1 || n > GetData()->allocLength) {
        Release();
        AllocBuffer(n);
    }
}

void CString::AssignCopy(int n, const char* src) {
    if (pointsInto(src, m_pchData, GetLength()) && GetData()->refs <= 1 && n <= GetData()->allocLength) {
        // Our own characters, moved within the buffer that holds them.
        memmove(m_pchData, src, static_cast<size_t>(n));
    } else if (pointsInto(src, m_pchData, GetLength())) {
        CString keep(*this);  // keeps src alive while the buffer is replaced
        AllocBeforeWrite(n);
        memcpy(m_pchData, src, static_cast<size_t>(n));
    } else {
        AllocBeforeWrite(n);
        if (n > 0) memcpy(m_pchData, src, static_cast<size_t>(n));
    }
    if (m_pchData != afxPchNil) {
        GetData()->dataLength = n;
        m_pchData[n] = '\0';
    }
}

void CString::AllocCopy(CString& dest, int copyLen, int copyIndex, int extraLen) const {
    int newLen = checkedLength(static_cast<long long>(copyLen) + extraLen);
    if (newLen == 0) {
        dest.Init();
    } else {
        dest.AllocBuffer(newLen);
        memcpy(dest.m_pchData, m_pchData + copyIndex, static_cast<size_t>(copyLen));
    }
}

void CString::ConcatCopy(int len1, const char* src1, int len2, const char* src2) {
    int total = checkedLength(static_cast<long long>(len1) + len2);
    if (total == 0) return;
    AllocBuffer(total);
    if (len1 > 0) memcpy(m_pchData, src1, static_cast<size_t>(len1));
    if (len2 > 0) memcpy(m_pchData + len1, src2, static_cast<size_t>(len2));
}

void CString::ConcatInPlace(int n, const char* src) {
    if (n == 0) return;
    CStringData* data = GetData();
    if (data->refs > 1 || static_cast<long long>(data->dataLength) + n > data->allocLength) {
        ConcatCopy(data->dataLength, data->data(), n, src);  // reads src before the old buffer goes
        Release(data);
    } else {
        memmove(m_pchData + data->dataLength, src, static_cast<size_t>(n));
        data->dataLength += n;
        m_pchData[data->dataLength] = '\0';
    }
}

// ---- construction and assignment -------------------------------------------

CString::CString() { Init(); }

CString::CString(const CString& other) {
    if (other.GetData()->refs >= 0) {
        m_pchData = other.m_pchData;
        InterlockedIncrement(&GetData()->refs);
    } else {
        Init();
        AssignCopy(other.GetLength(), other.m_pchData);
    }
}

CString::CString(const char* text) {
    Init();
    int n = SafeStrlen(text);
    if (n != 0) {
        AllocBuffer(n);
        memcpy(m_pchData, text, static_cast<size_t>(n));
    }
}

CString::CString(const char* bytes, int n) {
    Init();
    if (n > 0 && bytes != nullptr) {
        AllocBuffer(n);
        memcpy(m_pchData, bytes, static_cast<size_t>(n));
    }
}

CString::CString(char c, int n) {
    Init();
    if (n > 0) {
        AllocBuffer(n);
        memset(m_pchData, c, static_cast<size_t>(n));
    }
}

CString::~CString() { Release(GetData()); }

CString& CString::operator=(const CString& other) {
    if (m_pchData == other.m_pchData) return *this;
    bool locked = GetData()->refs < 0 && GetData() != afxDataNil;
    if (locked || other.GetData()->refs < 0) {
        AssignCopy(other.GetLength(), other.m_pchData);
    } else {
        Release();
        m_pchData = other.m_pchData;
        InterlockedIncrement(&GetData()->refs);
    }
    return *this;
}

CString& CString::operator=(const char* text) {
    if (text != m_pchData) AssignCopy(SafeStrlen(text), text);
    return *this;
}

CString& CString::operator=(char c) {
    AssignCopy(1, &c);
    return *this;
}

void CString::Empty() {
    if (GetLength() == 0) return;
    if (GetData()->refs >= 0)
        Release();
    else
        AssignCopy(0, &afxChNil);
}

void CString::SecureEmpty() {
    CStringData* data = GetData();
    if (data != afxDataNil && data->refs <= 1) explicit_bzero(m_pchData, static_cast<size_t>(data->allocLength));
    if (data->refs < 0 && data != afxDataNil) {
        GetData()->dataLength = 0;  // a locked buffer stays locked, now empty
        return;
    }
    Release();
}

// ---- concatenation ----------------------------------------------------------

CString& CString::operator+=(const CString& other) {
    ConcatInPlace(other.GetLength(), other.m_pchData);
    return *this;
}

CString& CString::operator+=(const char* text) {
    ConcatInPlace(SafeStrlen(text), text);
    return *this;
}

CString& CString::operator+=(char c) {
    if (c != '\0') ConcatInPlace(1, &c);
    return *this;
}

CString operator+(const CString& a, const CString& b) {
    CString s;
    s.ConcatCopy(a.GetLength(), a.m_pchData, b.GetLength(), b.m_pchData);
    return s;
}

CString operator+(const CString& a, const char* b) {
    CString s;
    s.ConcatCopy(a.GetLength(), a.m_pchData, CString::SafeStrlen(b), b);
    return s;
}

CString operator+(const char* a, const CString& b) {
    CString s;
    s.ConcatCopy(CString::SafeStrlen(a), a, b.GetLength(), b.m_pchData);
    return s;
}

CString operator+(const CString& a, char c) {
    CString s;
    s.ConcatCopy(a.GetLength(), a.m_pchData, c != '\0' ? 1 : 0, &c);
    return s;
}

CString operator+(char c, const CString& a) {
    CString s;
    s.ConcatCopy(c != '\0' ? 1 : 0, &c, a.GetLength(), a.m_pchData);
    return s;
}

// ---- comparison --------------------------------------------------------------

int _strcmpi(const char* a, const char* b) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(a);
    const unsigned char* q = reinterpret_cast<const unsigned char*>(b);
    for (;; ++p, ++q) {
        int x = (*p >= 'A' && *p <= 'Z') ? *p + ('a' - 'A') : *p;
        int y = (*q >= 'A' && *q <= 'Z') ? *q + ('a' - 'A') : *q;
        if (x != y || x == 0) return x - y;
    }
}

int _stricmp(const char* a, const char* b) { return _strcmpi(a, b); }

int CString::Compare(const char* text) const { return strcmp(m_pchData, text); }
int CString::CompareNoCase(const char* text) const { return _stricmp(m_pchData, text); }

bool operator==(const CString& a, const char* b) { return a.Compare(b) == 0; }
bool operator==(const char* a, const CString& b) { return b.Compare(a) == 0; }
bool operator==(const CString& a, const CString& b) {
    return a.GetLength() == b.GetLength() && memcmp(a, b, static_cast<size_t>(a.GetLength())) == 0;
}
bool operator!=(const CString& a, const char* b) { return !(a == b); }
bool operator!=(const char* a, const CString& b) { return !(a == b); }
bool operator!=(const CString& a, const CString& b) { return !(a == b); }

// ---- access and search -------------------------------------------------------

char CString::GetAt(int i) const { return (i >= 0 && i < GetLength()) ? m_pchData[i] : '\0'; }

void CString::SetAt(int i, char c) {
    if (i < 0 || i >= GetLength()) return;
    CopyBeforeWrite();
    m_pchData[i] = c;
}

int CString::Find(char c, int start) const {
    if (start < 0 || start > GetLength()) return -1;
    const char* p = strchr(m_pchData + start, c);
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::Find(const char* text, int start) const {
    if (start < 0 || start > GetLength()) return -1;
    const char* p = strstr(m_pchData + start, text);
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::ReverseFind(char c) const {
    const char* p = strrchr(m_pchData, c);
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

int CString::FindOneOf(const char* set, int start) const {
    if (start < 0 || start >= GetLength()) return -1;
    const char* p = strpbrk(m_pchData + start, set);
    return p == nullptr ? -1 : static_cast<int>(p - m_pchData);
}

// ---- extraction ----------------------------------------------------------------

CString CString::Mid(int first) const { return Mid(first, GetLength() - (first < 0 ? 0 : first)); }

CString CString::Mid(int first, int count) const {
    if (first < 0) first = 0;
    if (count < 0) count = 0;
    if (first > GetLength()) return CString();
    if (static_cast<long long>(first) + count > GetLength()) count = GetLength() - first;
    CString dest;
    AllocCopy(dest, count, first, 0);
    return dest;
}

CString CString::Left(int n) const {
    if (n < 0) n = 0;
    if (n >= GetLength()) return *this;
    CString dest;
    AllocCopy(dest, n, 0, 0);
    return dest;
}

CString CString::Right(int n) const {
    if (n < 0) n = 0;
    if (n >= GetLength()) return *this;
    CString dest;
    AllocCopy(dest, n, GetLength() - n, 0);
    return dest;
}

CString CString::SpanIncluding(const char* set) const { return Left(static_cast<int>(strspn(m_pchData, set))); }
CString CString::SpanExcluding(const char* set) const {
    return Left(static_cast<int>(strcspn(m_pchData, set)));
}

// ---- in-place edits -------------------------------------------------------------

int CString::Replace(char oldChar, char newChar) {
    if (oldChar == newChar) return 0;
    int count = 0;
    CopyBeforeWrite();
    for (int i = 0; i < GetLength(); ++i) {
        if (m_pchData[i] == oldChar) {
            m_pchData[i] = newChar;
            ++count;
        }
    }
    return count;
}

// Visits every non-overlapping match of `oldText` in `text`, stepping over embedded zero bytes up to
// `length` (which onMatch may change). onMatch(offset) returns the offset at which the scan goes on.
template <class OnMatch>
static void forEachMatch(const char* text, const char* oldText, const int& length, OnMatch onMatch) {
    int pos = 0;
    while (pos < length) {
        const char* hit;
        while ((hit = strstr(text + pos, oldText)) != nullptr) pos = onMatch(static_cast<int>(hit - text));
        pos += static_cast<int>(strlen(text + pos)) + 1;
    }
}

int CString::Replace(const char* oldText, const char* newText) {
    int oldLen = SafeStrlen(oldText);
    if (oldLen == 0) return 0;
    // Texts taken from this very string must survive a reallocation.
    CString oldKeep, newKeep;
    if (pointsInto(oldText, m_pchData, GetLength())) oldText = oldKeep = oldText;
    if (pointsInto(newText, m_pchData, GetLength())) newText = newKeep = newText;
    int newLen = SafeStrlen(newText);

    int count = 0;
    int length = GetLength();
    forEachMatch(m_pchData, oldText, length, [&](int at) {
        ++count;
        return at + oldLen;
    });
    if (count == 0) return 0;

    CopyBeforeWrite();
    int resultLen = checkedLength(static_cast<long long>(GetLength()) +
                                  static_cast<long long>(newLen - oldLen) * count);
    if (GetData()->allocLength < resultLen || GetData()->refs > 1) {
        CStringData* old = GetData();
        AllocBuffer(resultLen);
        memcpy(m_pchData, old->data(), static_cast<size_t>(old->dataLength) + 1);
        GetData()->dataLength = old->dataLength;
        Release(old);
    }
    length = GetLength();
    forEachMatch(m_pchData, oldText, length, [&](int at) {
        int tail = length - (at + oldLen);
        memmove(m_pchData + at + newLen, m_pchData + at + oldLen, static_cast<size_t>(tail));
        if (newLen > 0) memcpy(m_pchData + at, newText, static_cast<size_t>(newLen));
        length += newLen - oldLen;
        m_pchData[length] = '\0';
        return at + newLen;
    });
    GetData()->dataLength = resultLen;
    return count;
}

void CString::TrimLeft() {
    CopyBeforeWrite();
    const char* p = m_pchData;
    while (isspace(static_cast<unsigned char>(*p))) p = _strinc(p);
    if (p != m_pchData) {
        int newLen = GetLength() - static_cast<int>(p - m_pchData);
        memmove(m_pchData, p, static_cast<size_t>(newLen) + 1);
        GetData()->dataLength = newLen;
    }
}

void CString::TrimRight() {
    CopyBeforeWrite();
    const char* last = nullptr;
    for (const char* p = m_pchData; *p != '\0'; p = _strinc(p)) {
        if (isspace(static_cast<unsigned char>(*p))) {
            if (last == nullptr) last = p;
        } else {
            last = nullptr;
        }
    }
    if (last != nullptr) {
        int newLen = static_cast<int>(last - m_pchData);
        m_pchData[newLen] = '\0';
        GetData()->dataLength = newLen;
    }
}

char* _strupr(char* s) {
    for (char* p = s; *p != '\0'; ++p) *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
    return s;
}

char* _strlwr(char* s) {
    for (char* p = s; *p != '\0'; ++p) *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
    return s;
}

void CString::MakeUpper() {
    CopyBeforeWrite();
    _strupr(m_pchData);
}

void CString::MakeLower() {
    CopyBeforeWrite();
    _strlwr(m_pchData);
}

void CString::MakeReverse() { CopyBeforeWrite(); }

// ---- buffer access ----------------------------------------------------------------

char* CString::GetBuffer(int min) {
    if (min < 0) min = 0;
    if (GetData()->refs > 1 || min > GetData()->allocLength) {
        CStringData* old = GetData();
        int oldLen = old->dataLength;
        AllocBuffer(min > oldLen ? min : oldLen);
        memcpy(m_pchData, old->data(), static_cast<size_t>(oldLen) + 1);
        GetData()->dataLength = oldLen;
        Release(old);
    }
    return m_pchData;
}

char* CString::GetBufferSetLength(int n) {
    if (n < 0) n = 0;
    GetBuffer(n);
    if (m_pchData != afxPchNil) {
        GetData()->dataLength = n;
        m_pchData[n] = '\0';
    }
    return m_pchData;
}

void CString::ReleaseBuffer(int n) {
    CopyBeforeWrite();
    if (m_pchData == afxPchNil) return;
    int capacity = GetData()->allocLength;
    if (n < 0 || n > capacity) n = static_cast<int>(strnlen(m_pchData, static_cast<size_t>(capacity)));
    GetData()->dataLength = n;
    m_pchData[n] = '\0';
}

char* CString::LockBuffer() {
    char* p = GetBuffer(0);
    if (GetData() != afxDataNil) GetData()->refs = -1;
    return p;
}

void CString::UnlockBuffer() {
    // Only a locked buffer is touched: setting refs on a shared one would lose its sharers' count.
    if (GetData() != afxDataNil && GetData()->refs < 0) GetData()->refs = 1;
}

void CString::FreeExtra() {
    CStringData* old = GetData();
    if (old->dataLength != old->allocLength) {
        AllocBuffer(old->dataLength);
        memcpy(m_pchData, old->data(), static_cast<size_t>(old->dataLength));
        Release(old);
    }
}

void AppendGrowing(CString& text, const char* piece, int length) {
    if (length <= 0) return;
    long long need = static_cast<long long>(text.GetLength()) + length;
    if (need > INT_MAX) throw std::bad_alloc();
    if (need > text.GetAllocLength()) {
        long long grown = std::max(need, 2LL * text.GetLength());
        text.GetBuffer(static_cast<int>(std::min<long long>(grown, std::max<long long>(need, INT_MAX / 2))));
    }
    int old = text.GetLength();
    char* p = text.GetBuffer(static_cast<int>(need));
    memcpy(p + old, piece, static_cast<size_t>(length));
    text.ReleaseBuffer(static_cast<int>(need));
}
