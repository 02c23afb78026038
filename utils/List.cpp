// UList: an array of object pointers that grows and shrinks by one slot.
#include "list"

#include <cstring>

#include "Exception"
#include "StrFormat"
#include "Platform"

namespace {
constexpr unsigned int kSlot = sizeof(UObject*);

}  // namespace

UList::UList() : m_count(0) { InitializeCriticalSection(&m_lock); }

UList::~UList() { pthread_mutex_destroy(&m_lock); }

UObject* UList::getObject(int index) const {
    if (index < 0 || index >= m_count) return nullptr;
    return static_cast<UObject**>(m_objects.getPtr())[index];
}

int UList::addObject(UObject* object) {
    if (object == nullptr) return 0;
    UListLock hold(*this);
    return UCatchToCode("UList::addObject", __LINE__, [&] {
        AutoMemory grown;
        grown.malloc(static_cast<int>((static_cast<unsigned int>(m_count) + 1) * kSlot));
        if (grown.getPtr() == nullptr)
            throw UException(-1, "", "UList::addObject", __LINE__, "EXCEPTION - %s, %s",
                             "m_Objects.realloc error (m_count+1)",
                             static_cast<const char*>(createString(m_count + 1)));
        if (m_count > 0) memcpy(grown.getPtr(), m_objects.getPtr(), static_cast<size_t>(m_count) * kSlot);
        static_cast<UObject**>(grown.getPtr())[m_count] = object;
        m_objects.swap(grown);
        ++m_count;
        return 0;
    });
}

int UList::removeAt(int index) {
    if (index < 0 || index >= m_count) return 0;
    return UCatchToCode("UList::removeObject", __LINE__, [&] {
        UObject** slots = static_cast<UObject**>(m_objects.getPtr());
        memmove(&slots[index], &slots[index + 1], static_cast<size_t>(m_count - index - 1) * kSlot);
        --m_count;
        AutoMemory shrunk(slots, static_cast<unsigned int>(m_count) * kSlot);
        m_objects.swap(shrunk);
        return 0;
    });
}

int UList::removeObject(int index) {
    UListLock hold(*this);
    return removeAt(index);
}

int UList::removeObject2(int index) { return removeAt(index); }

void UList::emptyList() {
    UListLock hold(*this);
    m_count = 0;
    m_objects.malloc(0);
}

int UList::deleteObjects() {
    UListLock hold(*this);
    return UCatchToCode("UList::deleteObjects()", __LINE__, [&] {
        UObject** slots = static_cast<UObject**>(m_objects.getPtr());
        for (int i = 0; i < m_count; ++i) delete slots[i];
        m_count = 0;
        return 0;
    });
}

int UList::addOwned(UObject* object) {
    if (addObject(object) == 0) return 0;
    delete object;
    return -1;
}

void UList::deleteObject(int index) {
    UListLock hold(*this);
    UObject* object = getObject(index);
    if (object != nullptr && removeAt(index) == 0) delete object;
}
