// URLDecode on any bytes (zeros included): never longer than its input; decoding an encoding gives the input.
#include <cstring>

#include "Encoding"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CString input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    CString decoded = URLDecode(input);
    if (decoded.GetLength() > input.GetLength()) __builtin_trap();
    CString back = URLDecode(URLEncode(input));
    if (back.GetLength() != input.GetLength() || memcmp(back, input, size) != 0) __builtin_trap();
    return 0;
}
