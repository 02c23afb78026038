#include "HostLog.h"

#include <cstdarg>
#include <cstdio>

namespace {
std::function<void(const std::string&)> g_sink;
}

void setHostLogSink(std::function<void(const std::string& line)> sink) { g_sink = std::move(sink); }

void hostLog(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);  // a longer line is cut
    va_end(args);
    std::string line = std::string("passway-host: ") + text + "\n";
    if (g_sink)
        g_sink(line);
    else
        fputs(line.c_str(), stderr);
}
