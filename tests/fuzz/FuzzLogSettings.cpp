// The settings reader and the in-place level edit on any file content: lines of any length, binary junk.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "FuzzInput.h"
#include "LogSettings"

namespace {
// A private HOME for the whole run.
const std::string& settingsFile() {
    static std::string path = [] {
        char pattern[] = "/tmp/passway-fuzz-home-XXXXXX";
        std::string home = mkdtemp(pattern);
        setenv("HOME", home.c_str(), 1);
        mkdir((home + "/.Orvane").c_str(), 0755);
        atexit([] { (void)!system(("rm -rf '" + std::string(getenv("HOME")) + "'").c_str()); });
        return home + "/.Orvane/orvane.conf";
    }();
    return path;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    discardLog();
    FILE* f = fopen(settingsFile().c_str(), "wb");
    if (f == nullptr) return 0;
    fwrite(data, 1, size, f);
    fclose(f);
    ULogSettings::getModuleLogLevel("tunvo_plugin");
    ULogSettings::getFileRotationSize();
    ULogSettings::getLogLevel();
    ULogSettings::setLogLevel(size % 2 ? 31 : 1234567, 0);
    return 0;
}
