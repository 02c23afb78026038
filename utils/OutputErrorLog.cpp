// UOutputErrorLog: the log that prints to standard output.
#include <cstdio>

#include "ErrorLog"
#include "Platform"

int UOutputErrorLog::WriteLogItem(const char* line) {
    try {
        SYSTEMTIME now;
        GetSystemTime(&now);
        CString text;
        text.Format("%2d:%02d:%02d:%03d, (%lu)  ", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds,
                    static_cast<unsigned long>(GetCurrentThreadId()));
        text += line;
        if (text.IsEmpty() || text[text.GetLength() - 1] != '\n') text += "\r\n";
        puts(text);
    } catch (...) {
    }
    return 0;
}
