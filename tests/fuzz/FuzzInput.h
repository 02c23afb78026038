// Helpers shared by the fuzz targets: the input as text, and a log that swallows every line so that
// the logging paths run too.
#ifndef PASSWAY_FUZZ_FUZZINPUT_H
#define PASSWAY_FUZZ_FUZZINPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ErrorLog"

// The input as a zero-terminated text (bytes after an embedded zero are not seen by text readers).
inline std::string asText(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

class DiscardingLog : public UObject, public IUErrorLog {
public:
    DiscardingLog() { m_logLevel = 63; }
    int Open(const char*, const char*) override { return 0; }
    int Close() override { return 0; }
    int WriteLogByte(unsigned char*, unsigned int) override { return 0; }
    int WriteLogByte(const char*, unsigned char*, unsigned int) override { return 0; }
    const char* GetLogName() override { return "discard"; }
    int WriteLogItem(const char* line) override { return static_cast<int>(__builtin_strlen(line)); }
};

// Points the process log at a DiscardingLog for the whole run.
inline void discardLog() {
    static DiscardingLog log;
    errorLog = &log;
}

#endif
