#include "HostLog.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <strings.h>

#include "PageCall.h"

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

std::string urlForLog(const std::string& url) {
    static const char kJavascript[] = "javascript:";
    constexpr size_t kSchemeLength = sizeof kJavascript - 1;
    constexpr size_t kNameLength = 64;
    if (url.size() >= kSchemeLength && strncasecmp(url.c_str(), kJavascript, kSchemeLength) == 0) {
        std::string code = percentDecode(url.substr(kSchemeLength, 4 * kNameLength));
        size_t start = code.find_first_not_of(" \t\n\r\f\v");
        std::string name;
        for (size_t i = start; i < code.size() && name.size() < kNameLength; ++i) {
            unsigned char c = static_cast<unsigned char>(code[i]);
            if (!isalnum(c) && c != '_' && c != '$') break;
            name += static_cast<char>(c);
        }
        return kJavascript + name + "(...)";
    }
    return url.substr(0, url.find_first_of("?#"));
}
