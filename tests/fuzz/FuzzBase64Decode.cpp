// CRFCBase64::Decode on any text: never reads or writes out of bounds, and every decode form agrees.
#include <cstring>

#include "Encoding"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text = asText(data, size);
    CArray<unsigned char, unsigned char> bytes;
    int n = CRFCBase64::Decode(text.c_str(), bytes);
    CString whole = CRFCBase64::Decode(text.c_str());
    if (n != bytes.GetSize() || n != whole.GetLength() || (n > 0 && memcmp(bytes.GetData(), whole, n) != 0))
        __builtin_trap();
    if (static_cast<size_t>(n) > strlen(text.c_str()) * 3 / 4 + 2) __builtin_trap();

    // The raw input as bytes survives a round trip.
    CString encoded;
    CRFCBase64::Encode(data, static_cast<int>(size), encoded);
    CString back = CRFCBase64::Decode(encoded);
    if (static_cast<size_t>(back.GetLength()) != size || (size > 0 && memcmp(back, data, size) != 0)) __builtin_trap();
    return 0;
}
