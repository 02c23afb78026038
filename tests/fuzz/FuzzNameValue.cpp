// UHashTable::initFromValNameString on any text and separators: a defined table whose names are unique
// under the case rule and whose every name can be found again.
#include "FuzzInput.h"
#include "HashTable"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    std::string text = asText(data + 2, size - 2);
    UPropertyList table;
    int count = table.initFromValNameString(text.c_str(), static_cast<char>(data[0]), static_cast<char>(data[1]));
    if (count != table.getCount()) __builtin_trap();
    for (int i = 0; i < count; ++i) {
        const UHashTableItem* item = table.getItemByIndex(static_cast<unsigned int>(i));
        if (table.getItemByName(item->m_name) != item) __builtin_trap();
    }
    return 0;
}
