#include "CapturingLog.h"

int CapturingLog::WriteLogItem(const char* line) {
    m_lines.emplace_back(line != nullptr ? line : "");
    return static_cast<int>(m_lines.back().size());
}

std::string CapturingLog::text() const {
    std::string all;
    for (const std::string& line : m_lines) all += line;
    return all;
}
