// toDWORD, toInt, toINT64, toUINT64, toBool and strIPtoDWORD on any text: no exception escapes, and a
// rejected text gives the default.
#include "Convert"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    discardLog();
    std::string text = asText(data, size);
    const char* s = text.c_str();
    bool ok = true;
    unsigned int d = toDWORD(s, 12345u, &ok);
    if (!ok && d != 12345u) __builtin_trap();
    int i = toInt(s, -7, &ok);
    if (!ok && i != -7) __builtin_trap();
    toINT64(s, 0, &ok);
    toUINT64(s, 0, &ok);
    toBool(s, true);
    isNumber(s);
    unsigned int ip = strIPtoDWORD(s, 99u, &ok);
    if (!ok && ip != 99u) __builtin_trap();
    unsigned char plen;
    mask2plen(data, static_cast<int>(size), &plen);
    return 0;
}
