// ULogSettings: reading and writing the settings file.
#include "LogSettings"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "AutoMemory"
#include "String"
#include "UserFolder"

namespace {

constexpr unsigned int kDefaultLevel = 63;
constexpr unsigned int kDefaultRotationSize = 5242880;
const char kDefaultKey[] = "default_log_level=";
const char kRotationKey[] = "log_file_size";

CString settingsPath() { return userFolder() + "/orvane.conf"; }

// Reads the file piece by piece (fgets, at most 255 characters), calling `onLine(piece, offset)` for
// every piece that starts a line, with the file offset it was read from, until it returns false or the
// file ends. A longer line's later pieces are never taken for a key.
template <class OnLine>
void forEachLine(FILE* f, OnLine onLine) {
    AutoMemory buffer(256);
    char* piece = static_cast<char*>(buffer.getPtr());
    bool atLineStart = true;
    long offset = ftell(f);
    while (fgets(piece, 256, f) != nullptr) {
        bool startsLine = atLineStart;
        atLineStart = strchr(piece, '\n') != nullptr;
        if (startsLine && !onLine(piece, offset)) return;
        offset = ftell(f);
    }
}

bool startsWith(const char* text, const char* key) { return strncmp(text, key, strlen(key)) == 0; }

// The decimal number behind `at`, or `fallback` when none can be read.
long numberAt(const char* at, long fallback) {
    long value;
    return sscanf(at, "%ld", &value) == 1 ? value : fallback;
}

void writeTemplate(FILE* f, unsigned int level) {
    static const char rule[] = "##########################################################################\n";
    fputs(rule, f);
    fputs("# This file contain Orvane client components settings\n", f);
    fputs("# \n", f);
    fputs("# \n", f);
    fputs("# BASIC     31   Value use to provide basic logs which include user friendly messages, warnings, and "
          "errors.\n",
          f);
    fputs("#                Valid values are in the range 0 to 31, the highest setting is 31.\n", f);
    fputs("# EXTENDED  63   Set to provide extended log level.\n", f);
    fputs("#                Valid values are in the range of 32 to 63, the highest setting is 63.\n", f);
    fprintf(f, "%s\n", rule);
    fputs("\n\n", f);
    fputs("# default log level for all orvane components\n", f);
    fprintf(f, "default_log_level=%d\n\n", static_cast<int>(level));
    fputs("\n\n", f);
    fputs("# tunvo core log level. This setting is used to override the default log level set by default_log_level "
          "setting for tunvo component\n",
          f);
    fprintf(f, "#tunvo_log_level=%d\n\n", 63);
    fputs("\n\n", f);
    fputs("# tunvo NPAPI plugin log level. This setting is used to override the default log level set by "
          "default_log_level setting for tunvo NPAPI plugin\n",
          f);
    fprintf(f, "#tunvo_plugin_log_level=%d\n\n", 63);
    fputs("\n\n", f);
    fputs("# endpoint secutity NPAPI plugin. This setting is used to override the default log level set by "
          "default_log_level setting for endpoint secutity NPAPI plugin\n",
          f);
    fprintf(f, "#vigo_plugin_log_level=%d\n\n", 63);
    fputs("\n\n", f);
    fputs("# Fendral. This setting is used to override the default log level set by default_log_level setting for "
          "Fednral application\n",
          f);
    fprintf(f, "#fendral_log_level=%d\n\n", 63);
}

}  // namespace

unsigned int ULogSettings::getFileRotationSize() {
    unsigned int size = kDefaultRotationSize;
    FILE* f = fopen(settingsPath(), "rte");
    if (f == nullptr) return size;
    forEachLine(f, [&](const char* line, long) {
        if (!startsWith(line, kRotationKey)) return true;
        // The character after the key (normally '=') is skipped unchecked.
        unsigned int value;
        size = line[13] != '\0' && sscanf(line + 14, "%u", &value) == 1 ? value : kDefaultRotationSize;
        return false;
    });
    fclose(f);
    return size;
}

unsigned int ULogSettings::getLogLevel() {
    FILE* f = fopen(settingsPath(), "rte");
    if (f == nullptr) {
        setLogLevel(kDefaultLevel, 0);
        return kDefaultLevel;
    }
    unsigned int level = kDefaultLevel;
    forEachLine(f, [&](const char* line, long) {
        if (!startsWith(line, kDefaultKey)) return true;
        level = static_cast<unsigned int>(numberAt(line + strlen(kDefaultKey), kDefaultLevel));
        return false;
    });
    fclose(f);
    return level;
}

unsigned int ULogSettings::getModuleLogLevel(const char* module) {
    long defaultLevel = kDefaultLevel;
    long moduleLevel = -1;
    CString key;
    if (module != nullptr) key = CString(module) + "_log_level=";

    FILE* f = fopen(settingsPath(), "rte");
    if (f == nullptr) {
        setModuleLogLevel(module, kDefaultLevel);
    } else {
        forEachLine(f, [&](const char* line, long) {  // every line: the last match wins
            if (startsWith(line, kDefaultKey)) defaultLevel = numberAt(line + strlen(kDefaultKey), kDefaultLevel);
            if (!key.IsEmpty() && startsWith(line, key)) moduleLevel = numberAt(line + key.GetLength(), -1);
            return true;
        });
        fclose(f);
    }
    if (moduleLevel == -1) moduleLevel = defaultLevel;
    return static_cast<unsigned int>(moduleLevel);
}

void ULogSettings::setModuleLogLevel(const char* /*module*/, unsigned int level) { setLogLevel(level, 0); }

void ULogSettings::setLogLevel(unsigned int level, unsigned int) {
    CString folder = userFolder();
    if (folder.IsEmpty()) return;  // no home folder: nothing to write
    unsigned int uid, gid;
    getCurrentUserIDGroupID(&uid, &gid);
    prepareUserFolder(folder, uid, gid);
    CString path = settingsPath();

    FILE* f = fopen(path, "r+te");
    if (f == nullptr) {
        f = fopen(path, "wte");
        if (f != nullptr) {
            writeTemplate(f, level);
            fclose(f);
        }
    } else {
        bool found = false;
        forEachLine(f, [&](const char* line, long lineStart) {
            if (startsWith(line, kDefaultKey)) {
                // Overwritten in place: a shorter number leaves the old surplus behind, a longer one runs
                // into the next line. Both are kept as they are.
                fseek(f, lineStart, SEEK_SET);
                fprintf(f, "default_log_level=%d\n", static_cast<int>(level));
                found = true;
                return false;
            }
            return true;
        });
        if (!found) {
            fseek(f, 0, SEEK_END);
            fprintf(f, "\ndefault_log_level=%d\n", static_cast<int>(level));
        }
        fclose(f);
    }
    setOwnerAndMode(path, uid, gid, 0644);
}
