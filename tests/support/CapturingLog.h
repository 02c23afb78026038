// A log that keeps every line handed to its sink, for tests that check what would be written.
#ifndef PASSWAY_TESTS_CAPTURINGLOG_H
#define PASSWAY_TESTS_CAPTURINGLOG_H

#include <string>
#include <vector>

#include "ErrorLog"

class CapturingLog : public UObject, public IUErrorLog {
public:
    explicit CapturingLog(int level = 1) { m_logLevel = level; }

    int Open(const char*, const char*) override { return 0; }
    int Close() override { return 0; }
    int WriteLogByte(unsigned char*, unsigned int) override { return 0; }
    int WriteLogByte(const char*, unsigned char*, unsigned int) override { return 0; }
    const char* GetLogName() override { return "capture"; }
    int WriteLogItem(const char* line) override;

    const std::vector<std::string>& lines() const { return m_lines; }
    // All lines joined, for substring checks.
    std::string text() const;
    void clear() { m_lines.clear(); }

private:
    std::vector<std::string> m_lines;
};

// Installs a CapturingLog as the process log for one scope and puts the previous one back.
class ScopedCapturingLog : public CapturingLog {
public:
    explicit ScopedCapturingLog(int level = 1) : CapturingLog(level), m_previous(errorLog) { errorLog = this; }
    ~ScopedCapturingLog() override { errorLog = m_previous; }
    ScopedCapturingLog(const ScopedCapturingLog&) = delete;
    ScopedCapturingLog& operator=(const ScopedCapturingLog&) = delete;

private:
    IUErrorLog* m_previous;
};

#endif
