// UException: construction, copying and its log lines.
#include "Exception"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "ErrorLog"
#include "StrFormat"

namespace {

constexpr size_t kWorkSize = 5120;   // the formatting buffer; at most kWorkSize - 2 characters are kept
constexpr size_t kNameLimit = 1000;  // longer file and function names are dropped
const char kPrefix[] = "EXCEPTION - ";

char* copyText(const char* text) {
    if (text == nullptr) return nullptr;
    size_t n = strlen(text);
    char* copy = new char[n + 1];
    memcpy(copy, text, n + 1);
    return copy;
}

// The five columns every exception line has: level (always 1), file, line, function, text.
void writeLine(const char* file, unsigned int line, const char* function, const CString& text) {
    if (errorLog != nullptr) errorLog->WriteLogItem(sfmt("%1, %2, %3, %4, %5\n", 1, file, line, function, text));
}

}  // namespace

UException::UException()
    : m_message(nullptr), m_functionName(nullptr), m_fileName(nullptr), m_line(0), m_code(-1) {}

UException::UException(const UException& other)
    : m_message(copyText(other.m_message)),
      m_functionName(copyText(other.m_functionName)),
      m_fileName(copyText(other.m_fileName)),
      m_line(other.m_line),
      m_code(other.m_code) {}

UException& UException::operator=(const UException& other) {
    if (this != &other) {
        freeAll();
        m_message = copyText(other.m_message);
        m_functionName = copyText(other.m_functionName);
        m_fileName = copyText(other.m_fileName);
        m_line = other.m_line;
        m_code = other.m_code;
    }
    return *this;
}

UException& UException::operator=(const char* message) {
    freeAll();
    m_line = 0;
    m_message = copyText(message);
    m_code = -1;
    return *this;
}

UException& UException::operator=(int code) {
    freeAll();
    m_line = 0;
    m_message = copyText("unknown exception");
    m_code = code;
    return *this;
}

UException::~UException() { freeAll(); }

void UException::freeAll() {
    delete[] m_message;
    delete[] m_functionName;
    delete[] m_fileName;
    m_message = m_functionName = m_fileName = nullptr;
}

void UException::setMessage(const char* text, int length) {
    delete[] m_message;
    m_message = new char[static_cast<size_t>(length) + 1];
    memcpy(m_message, text, static_cast<size_t>(length));
    m_message[length] = '\0';
}

void UException::SetFileName(const char* name) {
    delete[] m_fileName;
    m_fileName = (name != nullptr && strlen(name) <= kNameLimit) ? copyText(name) : nullptr;
}

void UException::SetFunctionName(const char* name) {
    delete[] m_functionName;
    m_functionName = (name != nullptr && strlen(name) <= kNameLimit) ? copyText(name) : nullptr;
}

// Fills the message with `prefix` and the formatted text, or with `fallback` when `format` is null, cut to
// kWorkSize - 2 characters, then logs the exception. Without memory for the work buffer: no message, no line.
void UException::formatMessage(const char* prefix, const char* fallback, const char* format, va_list args) {
    char* work = new (std::nothrow) char[kWorkSize];
    if (work == nullptr) return;
    if (format == nullptr) {
        snprintf(work, kWorkSize - 1, "%s", fallback);
    } else {
        size_t prefixLength = strlen(prefix);
        memcpy(work, prefix, prefixLength);
        if (vsnprintf(work + prefixLength, kWorkSize - 1 - prefixLength, format, args) < 0)
            work[prefixLength] = '\0';
    }
    work[kWorkSize - 1] = '\0';
    setMessage(work, static_cast<int>(strlen(work)));
    delete[] work;
    WriteToLog();
}

UException::UException(int code, const char* fileName, const char* functionName, unsigned int line,
                       const char* format, ...)
    : UException() {
    m_code = code;
    SetFileName(fileName);
    SetFunctionName(functionName);
    SetLine(line);
    bool valid = fileName != nullptr && functionName != nullptr;
    va_list args;
    va_start(args, format);
    formatMessage("",
                  "UException::UException(int a_code, LPCTSTR a_lpszFileName, LPCTSTR a_lpszFunctionName, "
                  "DWORD a_dwLine, LPCTSTR lpszMsg, ...)  - input parameter is invalid",
                  valid ? format : nullptr, args);
    va_end(args);
}

UException::UException(int code, const char* format, ...) : UException() {
    m_code = code;
    va_list args;
    va_start(args, format);
    formatMessage(kPrefix, "UException::UException(int a_code, LPCTSTR lpszMsg, ...)  - template parameter is NULL\n",
                  format, args);
    va_end(args);
}

UException::UException(const char* format, ...) : UException() {
    va_list args;
    va_start(args, format);
    formatMessage(kPrefix, "UException::UException(LPCTSTR lpszMsg, ...) - template parameter is NULL\n", format,
                  args);
    va_end(args);
}

void UException::WriteToLog() const {
    if (errorLog == nullptr) return;
    if (m_fileName == nullptr && m_line == 0 && m_functionName == nullptr) {
        writeLine("", 0, "", m_message);
    } else if (m_code == -1) {
        writeLine(m_fileName, m_line, m_functionName, m_message);
    } else {
        CString text;
        text.Format("(0x%x) %s", static_cast<unsigned int>(m_code), m_message != nullptr ? m_message : "");
        writeLine(m_fileName, m_line, m_functionName, text);
    }
}

void UException::WriteCaught(const char* site, unsigned int line) const {
    writeLine("", line, CString(site) + " - EXCEPTION", CString("EXCEPTION caught: ") + m_message);
}

void WriteUnknownExceptionCaught(const char* site, unsigned int line) {
    CString where = CString(site) + " - EXCEPTION";
    writeLine("", line, where, "EXCEPTION caught: " + where);
}

CString SGetLastError() { return CString(strerror(errno)); }
