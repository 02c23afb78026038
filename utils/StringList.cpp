// UStringList (name/value pairs) and UBlobList (named byte blocks).
#include <cstring>

#include "list"


int UStringList::addItem(const char* name, const char* value) {
    return m_list.addOwned(new UStringListItem(name, value));
}

const char* UStringList::getItem(int index, int which) const {
    const UStringListItem* item = static_cast<const UStringListItem*>(m_list.getObject(index));
    if (item == nullptr) return nullptr;
    return which == 0 ? item->m_name : item->m_value;
}

int UStringList::findItem(CString text, int which) {
    UListLock hold(m_list);
    for (int i = 0; i < m_list.getCount(); ++i) {
        const UStringListItem* item = static_cast<const UStringListItem*>(m_list.getObject(i));
        const CString& field = which < 1 ? item->m_name : item->m_value;
        if (field.Find(text) >= 0) return i;
    }
    return -1;
}

void UStringList::removeItem(int index) { m_list.deleteObject(index); }

UBlobListItem::UBlobListItem(const char* name, const void* bytes, unsigned int size) : m_name(name) {
    if (bytes != nullptr && size > 0) m_bytes.Append(static_cast<const unsigned char*>(bytes), static_cast<int>(size));
}

int UBlobList::addItem(const char* name, const void* bytes, unsigned int size) {
    if (size > 0x7FFFFFFFu) return -1;
    return m_list.addOwned(new UBlobListItem(name, bytes, size));
}

int UBlobList::addItem(const char* name, CArray<unsigned char, unsigned char>* bytes) {
    if (bytes == nullptr) return addItem(name, nullptr, 0);
    return addItem(name, bytes->GetData(), static_cast<unsigned int>(bytes->GetSize()));
}

const unsigned char* UBlobList::getItem(int index, unsigned int* size) const {
    const UBlobListItem* item = static_cast<const UBlobListItem*>(m_list.getObject(index));
    if (size != nullptr) *size = item == nullptr ? 0 : static_cast<unsigned int>(item->m_bytes.GetSize());
    return item == nullptr ? nullptr : item->m_bytes.GetData();
}

const unsigned char* UBlobList::getItem(const char* name, unsigned int* size) const {
    return getItem(findItem(name), size);
}

int UBlobList::findItem(const char* name) const {
    if (name == nullptr) return -1;
    for (int i = 0; i < m_list.getCount(); ++i) {
        const UBlobListItem* item = static_cast<const UBlobListItem*>(m_list.getObject(i));
        if (strcmp(item->m_name, name) == 0) return i;
    }
    return -1;
}

void UBlobList::removeItem(int index) { m_list.deleteObject(index); }
void UBlobList::removeItem(const char* name) { m_list.deleteObject(findItem(name)); }
