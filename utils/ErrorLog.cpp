// IUErrorLog: the level rules and the line body; the process log pointer.
#include "ErrorLog"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "StrFormat"

namespace {

constexpr size_t kMessageSize = 5120;  // vsnprintf's limit: at most 5,119 characters are kept

// "<level>,,,, " into `prefix` (24 bytes); returns its length.
int levelPrefix(int level, char* prefix) {
    char digits[12];
    int n = 0;
    unsigned int magnitude = level < 0 ? 0u - static_cast<unsigned int>(level) : static_cast<unsigned int>(level);
    do {
        digits[n++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    int length = 0;
    if (level < 0) prefix[length++] = '-';
    while (n > 0) prefix[length++] = digits[--n];
    memcpy(prefix + length, ",,,, ", 5);
    return length + 5;
}

// Hands "<level>,,,, <text>" to the log's sink: built on the stack for the usual short line, in one
// exactly-sized allocation for a long one.
int writeLevelLine(IUErrorLog& log, int level, const char* text) {
    if (text == nullptr) text = "(null)";
    char line[1024];
    int prefixLength = levelPrefix(level, line);
    size_t textLength = strlen(text);
    if (textLength < sizeof line - static_cast<size_t>(prefixLength)) {
        memcpy(line + prefixLength, text, textLength + 1);
        return log.WriteLogItem(line);
    }
    CString longLine;
    char* p = longLine.GetBuffer(prefixLength + CString::SafeStrlen(text));
    memcpy(p, line, static_cast<size_t>(prefixLength));
    memcpy(p + prefixLength, text, textLength);
    longLine.ReleaseBuffer(prefixLength + static_cast<int>(textLength));
    return log.WriteLogItem(longLine);
}

// Formats into `buffer` (kMessageSize + 1 bytes); a null format gives `nullText`.
const char* formatMessage(char* buffer, const char* nullText, const char* format, va_list args) {
    if (format == nullptr) return nullText;
    if (vsnprintf(buffer, kMessageSize, format, args) < 0) buffer[0] = '\0';
    buffer[kMessageSize] = '\0';
    return buffer;
}

}  // namespace

int IUErrorLog::WriteLog(const char* format, ...) {
    char buffer[kMessageSize + 1];
    va_list args;
    va_start(args, format);
    const char* text =
        formatMessage(buffer, "IUErrorLog::WriteLog(LPCTSTR lpszMsg, ...) - template is NULL\n", format, args);
    va_end(args);
    return WriteErrorStr(text);
}

int IUErrorLog::WriteLog(int level, const char* format, ...) {
    if (m_logLevel < level) return 0;
    char buffer[kMessageSize + 1];
    va_list args;
    va_start(args, format);
    const char* text = formatMessage(
        buffer, "IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n", format, args);
    va_end(args);
    return level == 0 ? WriteErrorStr(text) : WriteLogStr(level, text);
}

int IUErrorLog::WriteLogStr(const char* text) {
    if (m_logLevel < 1) return 0;
    return writeLevelLine(*this, 0, text);
}

int IUErrorLog::WriteLogStr(int level, const char* text) {
    if (m_logLevel < 1) return 0;
    return writeLevelLine(*this, level, text);
}

int IUErrorLog::WriteErrorStr(const char* text) { return writeLevelLine(*this, 0, text); }

int IUErrorLog::WriteAsHex(int level, unsigned char* data, unsigned int length) {
    if (m_logLevel < level || data == nullptr) return 0;
    constexpr unsigned int kPerLine = 32;
    char line[kPerLine * 3 + 2];
    for (unsigned int start = 0; start < length; start += kPerLine) {
        unsigned int end = length - start < kPerLine ? length : start + kPerLine;
        char* p = line;
        for (unsigned int i = start; i < end; ++i) p += snprintf(p, 4, " %2X", data[i]);
        memcpy(p, "\n", 2);
        WriteLog(level, "%s", line);
    }
    return 0;
}

int IUErrorLog::GetLogLevel() { return m_logLevel; }

int IUErrorLog::SetLogLevel(int level) {
    int old = m_logLevel;
    m_logLevel = level == 0 ? 1 : level;
    if (m_logLevel != old) WriteLog(0, "log level has been changed to %d\n", m_logLevel);
    return 0;
}

void IUErrorLog::setParam(const char*, const char*) {}
