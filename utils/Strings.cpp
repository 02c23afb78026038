// UStrings: an owned list of texts.
#include <cstring>

#include "list"

UStringsItem::UStringsItem(const char* text, unsigned int length) : m_text(nullptr) {
    if (text == nullptr) return;
    m_text = new char[static_cast<size_t>(length) + 1];
    memcpy(m_text, text, length);
    m_text[length] = '\0';
}

void UStringsItem::trim() {
    if (m_text == nullptr) return;
    size_t n = strlen(m_text);
    while (n > 0 && m_text[n - 1] == ' ') m_text[--n] = '\0';
    size_t first = 0;
    while (m_text[first] == ' ') ++first;
    if (first > 0) memmove(m_text, m_text + first, n - first + 1);
}

UStrings::UStrings(const UStrings& other) : UObject(other) {
    for (int i = 0; i < other.getCount(); ++i) addItem(other.getItem(i));
}

int UStrings::fromString(const char* text, char sep, int flags) {
    clear();
    if (text == nullptr) return 0;
    const char separator[2] = {sep, '\0'};
    const char* piece = text;
    for (const char* p = text;; ++p) {
        if (*p != sep && *p != '\0') continue;
        if (p > piece) {
            addItem(piece, static_cast<unsigned int>(p - piece));
            if (flags & TRIM_ITEMS) static_cast<UStringsItem*>(m_list.getObject(getCount() - 1))->trim();
        }
        if (*p == '\0') break;
        if (flags & ADD_SEPARATORS) addItem(separator, 1);
        piece = p + 1;
    }
    return getCount();
}

int UStrings::addItem(const char* text) { return addItem(text, static_cast<unsigned int>(CString::SafeStrlen(text))); }

int UStrings::addItem(const char* text, unsigned int length) {
    return m_list.addOwned(new UStringsItem(text, length));
}

const char* UStrings::getItem(int index) const {
    const UStringsItem* item = static_cast<const UStringsItem*>(m_list.getObject(index));
    return item == nullptr ? nullptr : static_cast<const char*>(*item);
}

int UStrings::find(const char* text) const {
    if (text == nullptr) return -1;
    for (int i = 0; i < getCount(); ++i) {
        const char* item = getItem(i);
        if (item != nullptr && strcmp(item, text) == 0) return i;
    }
    return -1;
}

void UStrings::removeItem(int index) {
    m_list.deleteObject(index);
}

void UStrings::clear() {
    m_list.deleteObjects();
    m_list.emptyList();
}

CString UStrings::toString() const {
    CString joined;
    for (int i = 0; i < getCount(); ++i) joined += getItem(i);
    return joined;
}
