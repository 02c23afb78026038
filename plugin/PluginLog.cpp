// The plug-in's log calls.
#include "PluginLog.h"

#include <cstdarg>

#include "ErrorLog"
#include "LogSettings"
#include "PluginInfo.h"
#include "UserFolder"

void PluginOpenLog() {
    const char* home = getCurrentUserHomeFolder();
    if (home == nullptr) return;  // no home folder: the plug-in logs nothing
    CString path = CString(home) + PLUGIN_LOG_FOLDER + PLUGIN_LOG_FILE;
    if (errorLog != nullptr) errorLog->setParam("module_name", PLUGIN_LOG_MODULE);
    if (errorLog != nullptr) errorLog->Open(path, "a");
    if (errorLog != nullptr)
        errorLog->SetLogLevel(static_cast<int>(ULogSettings::getModuleLogLevel(PLUGIN_LOG_MODULE)));
    PluginWriteLog(0, "[PluginOpenLog] -------------------------------------------------------------\n");
    PluginWriteLog(0, "[PluginOpenLog] Plugin name:'%s'\n", PLUGIN_NAME);
    PluginWriteLog(0, "[PluginOpenLog] Plugin version:'%s'\n", PLUGIN_VERSION);
    PluginWriteLog(0, "[PluginOpenLog] Plugin mime:'%s'\n", PLUGIN_MIME_DESCRIPTION);
    PluginWriteLog(0, "[PluginOpenLog] -------------------------------------------------------------\n");
}

void PluginWriteLog(int /*level*/, const char* format, ...) {
    if (errorLog == nullptr) return;
    try {
        // The usual short line is formatted on the stack; a longer one into a CString, with no limit.
        char small[1024];
        va_list args;
        va_start(args, format);
        int length = FormatVInto(small, sizeof small, format, args);
        va_end(args);
        if (length >= 0) {
            errorLog->WriteLogStr(small);
            return;
        }
        CString text;
        va_start(args, format);
        text.FormatV(format, args);
        va_end(args);
        errorLog->WriteLogStr(text);
    } catch (...) {
        // The log never takes the browser down: a line that cannot be made is dropped.
    }
}

int PluginCloseLog() { return errorLog != nullptr ? errorLog->Close() : 0; }
