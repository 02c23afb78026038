// Formatting: CString::Format and the placeholder builder against the C library and std::string
// doing the same work.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "Ratio.h"
#include "StrFormat"

namespace {

// The values of one plug-in log line header and its text. Read through `volatile` so that the compiler
// cannot fold the C library's calls at build time.
struct LineValues {
    int year = 2016, month = 4, day = 29, hour = 9, minute = 5, second = 7, millis = 0, pid = 4711;
    const char* module = "tunvo_plugin";
    const char* text = "[PluginInstance_URLNotify] reply received from the local service";
};
LineValues values() {
    static volatile int seed = 0;
    LineValues v;
    v.millis += seed;
    return v;
}

#define LINE_FORMAT "%04d-%02d-%02d,%2d:%02d:%02d:%03d, %d,%d,%s, %s\n"
#define LINE_ARGS v.year, v.month, v.day, v.hour, v.minute, v.second, v.millis, v.pid, v.pid, v.module, v.text

void BM_CStringFormat(benchmark::State& state) {
    LineValues v = values();
    for (auto _ : state) {
        CString s;
        s.Format(LINE_FORMAT, LINE_ARGS);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_CStringFormat);

// The usual exact-size idiom: measure with snprintf(NULL, 0), then print into a string of that size.
void BM_SnprintfToString(benchmark::State& state) {
    LineValues v = values();
    for (auto _ : state) {
        int n = snprintf(nullptr, 0, LINE_FORMAT, LINE_ARGS);
        std::string s(static_cast<size_t>(n), '\0');
        snprintf(&s[0], s.size() + 1, LINE_FORMAT, LINE_ARGS);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_SnprintfToString);
PASSWAY_RATIO("CString::Format vs measured snprintf", "BM_CStringFormat", "BM_SnprintfToString");

void BM_Sfmt(benchmark::State& state) {
    CString message(values().text);
    for (auto _ : state) {
        StrFormat line = sfmt("%1, %2, %3, %4, %5\n", 1, "", 1459u, "UFileErrorLog::WriteLogByte", message);
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(BM_Sfmt);

void BM_StdStringConcat(benchmark::State& state) {
    std::string message(values().text);
    for (auto _ : state) {
        std::string line = std::to_string(1) + ", " + "" + ", " + std::to_string(1459u) + ", " +
                           "UFileErrorLog::WriteLogByte" + ", " + message + "\n";
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(BM_StdStringConcat);
PASSWAY_RATIO("sfmt five columns vs std::string +", "BM_Sfmt", "BM_StdStringConcat");

}  // namespace
