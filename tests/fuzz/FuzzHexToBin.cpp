// HexToBin and HexToBinReverse never write past `max` bytes, whatever the text.
#include <memory>

#include "Encoding"
#include "FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    unsigned int max = data[0] % 40;  // the room, taken from the first byte
    std::string text = asText(data + 1, size - 1);
    std::unique_ptr<unsigned char[]> out(new unsigned char[max == 0 ? 1 : max]);  // exactly `max` usable bytes
    int result = HexToBin(text.c_str(), out.get(), max);
    if (result != 0 && result != -1 && result != -2) __builtin_trap();
    result = HexToBinReverse(text.c_str(), out.get(), max);
    if (result != 0 && result != -2) __builtin_trap();
    return 0;
}
