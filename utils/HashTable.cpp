// UHashTable and the name/value splitters.
#include "HashTable"

#include <cstdio>

int SplitString(const char* text, CString& left, CString& right, char sep, bool keepSpaces, bool fromEnd) {
    left = text;
    right.Empty();
    if (left.IsEmpty()) return -1;
    int pos = fromEnd ? left.ReverseFind(sep) : left.Find(sep);
    if (pos >= 0) {
        right = left.Mid(pos + 1);
        left = left.Left(pos);
    }
    if (!keepSpaces) {
        left.TrimLeft();
        left.TrimRight();
        right.TrimLeft();
        right.TrimRight();
    }
    return pos;
}

bool ParseNameValue(const char* text, CString& name, CString& value) {
    CString whole(text);
    int pos = whole.Find('=');
    if (pos <= 0) return false;
    name = whole.Left(pos);
    value = whole.Mid(pos + 1);
    name.TrimLeft();
    name.TrimRight();
    value.TrimLeft();
    value.TrimRight();
    return true;
}

void UHashTable::clear() {
    m_items.deleteObjects();
    m_items.emptyList();
}

UHashTableItem* UHashTable::getItemByIndex(unsigned int index) const {
    if (index > 0x7FFFFFFFu) return nullptr;
    return static_cast<UHashTableItem*>(m_items.getObject(static_cast<int>(index)));
}

CString UHashTable::getValByIndex(unsigned int index, const char* fallback) const {
    const UHashTableItem* item = getItemByIndex(index);
    return item != nullptr ? item->m_value : CString(fallback);
}

UHashTableItem* UHashTable::getItemByName(const char* name) const {
    if (name == nullptr) return nullptr;
    for (int i = 0; i < m_items.getCount(); ++i) {
        UHashTableItem* item = static_cast<UHashTableItem*>(m_items.getObject(i));
        if (_stricmp(item->m_name, name) == 0) return item;
    }
    return nullptr;
}

CString UHashTable::getVar(const char* name, const char* fallback) const {
    const UHashTableItem* item = getItemByName(name);
    return item != nullptr ? item->m_value : CString(fallback);
}

void UHashTable::setVar(const char* name, const char* value) {
    UHashTableItem* item = getItemByName(name);
    if (item != nullptr)
        item->m_value = value;
    else
        m_items.addOwned(new UHashTableItem(name, value));
}

int UHashTable::initFromString(const char* text, char sep, const char* prefix) {
    // One pass over the text: cutting at each separator and trimming every piece gives the same items
    // as splitting the trimmed remainder again and again, without copying the remainder each time.
    clear();
    CString whole(text);
    int stored = 0;
    for (int start = 0; start <= whole.GetLength();) {
        int cut = whole.Find(sep, start);
        int end = cut < 0 ? whole.GetLength() : cut;
        CString item = whole.Mid(start, end - start);
        item.TrimLeft();
        item.TrimRight();
        if (!item.IsEmpty()) {
            char number[16];
            snprintf(number, sizeof number, "%d", stored++);
            m_items.addOwned(new UHashTableItem(CString(prefix) + number, item));  // names are new by construction
        }
        if (cut < 0) break;
        start = cut + 1;
    }
    return stored;
}

int UHashTable::initFromValNameString(const char* text, char itemSep, char nvSep) {
    clear();
    UHashTable pieces;
    pieces.initFromString(text, itemSep, "");
    for (int i = 0; i < pieces.getCount(); ++i) {
        CString name, value;
        SplitString(pieces.getItemByIndex(static_cast<unsigned int>(i))->m_value, name, value, nvSep, false, false);
        setVar(name, value);
    }
    return getCount();
}
