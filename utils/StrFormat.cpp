// StrFormat: numbered-placeholder templates.
#include "StrFormat"

#include <climits>

StrFormat::StrFormat(const wchar_t* text) : m_text(), m_append(false) {
    if (text != nullptr) m_text = createString(text, -1, "");
}

StrFormat& StrFormat::operator=(const StrFormat& other) {
    if (this != &other && m_text.Compare(other.m_text) != 0) m_text = other.m_text;
    return *this;
}

StrFormat& StrFormat::arg(const char* value) { return ReplaceArgEscapes(CString(value)); }
StrFormat& StrFormat::arg(const CString& value) { return ReplaceArgEscapes(value); }
StrFormat& StrFormat::arg(unsigned int value) { return ReplaceArgEscapes(createString(value)); }
StrFormat& StrFormat::arg(unsigned char value) { return ReplaceArgEscapes(createString(value)); }
StrFormat& StrFormat::arg(int value) { return ReplaceArgEscapes(createString(value)); }
StrFormat& StrFormat::argHex(unsigned long long value) {
    return ReplaceArgEscapes(toHex(static_cast<unsigned long>(value)));
}

int StrFormat::FindArgEscapes(int& count) const {
    int lowest = INT_MAX;
    count = 0;
    const char* text = m_text;
    for (int i = 0; i + 1 < m_text.GetLength(); ++i) {
        if (text[i] != '%' || text[i + 1] < '0' || text[i + 1] > '9') continue;
        int digit = text[i + 1] - '0';
        if (digit < lowest) {
            lowest = digit;
            count = 1;
        } else if (digit == lowest) {
            ++count;
        }
    }
    return lowest;
}

StrFormat& StrFormat::ReplaceArgEscapes(const CString& value) {
    int count;
    int digit = FindArgEscapes(count);
    if (count != 0) {
        const char placeholder[3] = {'%', static_cast<char>('0' + digit), '\0'};
        m_text.Replace(placeholder, value);
    } else if (m_append) {
        m_text += ", ";
        m_text += value;
    }
    return *this;
}
