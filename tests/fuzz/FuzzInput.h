// Helpers shared by the fuzz targets: the input as text, and a log that keeps only the current input's lines,
// so that the logging paths run too.
#ifndef PASSWAY_FUZZ_FUZZINPUT_H
#define PASSWAY_FUZZ_FUZZINPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "TestSupport.h"

// The input as a zero-terminated text (bytes after an embedded zero are not seen by text readers).
inline std::string asText(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

// Points the process log at a capturing log at the highest level, emptied for each input.
inline void discardLog() {
    static CapturingLog log(63);
    log.clear();
    errorLog = &log;
}

#endif
