// Lines through the plug-in's log call against writing the same finished line with fputs + fflush.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "PluginLog.h"
#include "Ratio.h"

namespace {

// A temporary HOME for the whole run, with rotation far away so that every line is a plain write.
const std::string& benchHome() {
    static std::string home = [] {
        char pattern[] = "/tmp/passway-bench-XXXXXX";
        std::string path = mkdtemp(pattern);
        setenv("HOME", path.c_str(), 1);
        std::string folder = path + "/.Orvane";
        mkdir(folder.c_str(), 0755);
        FILE* conf = fopen((folder + "/orvane.conf").c_str(), "w");
        fputs("default_log_level=63\nlog_file_size=4000000000\n", conf);
        fclose(conf);
        static char removal[256];  // outlives every static object: the removal runs at exit
        snprintf(removal, sizeof removal, "rm -rf '%s'", path.c_str());
        atexit([] { (void)!system(removal); });
        return path;
    }();
    return home;
}

void BM_PluginWriteLog(benchmark::State& state) {
    benchHome();
    PluginOpenLog();
    int n = 0;
    for (auto _ : state) PluginWriteLog(2, "[PluginInstance_URLNotify] url=%s, reason=%d\n", "javascript:c_addcomm()", ++n);
    PluginCloseLog();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_PluginWriteLog);

void BM_FputsFflush(benchmark::State& state) {
    FILE* f = fopen((benchHome() + "/baseline.log").c_str(), "a");
    // The same finished line the log writes: its header and the text.
    const std::string line = "2016-04-29, 9:05:07:000, 4711,4711,tunvo_plugin, 0,,,, "
                             "[PluginInstance_URLNotify] url=javascript:c_addcomm(), reason=1234\n";
    for (auto _ : state) {
        fputs(line.c_str(), f);
        fflush(f);
    }
    fclose(f);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FputsFflush);
PASSWAY_RATIO("PluginWriteLog vs fputs + fflush", "BM_PluginWriteLog", "BM_FputsFflush");

}  // namespace
