// The plug-in's log calls, over the process log (errorLog).
#ifndef PASSWAY_PLUGIN_PLUGINLOG_H
#define PASSWAY_PLUGIN_PLUGINLOG_H

// Opens "~/.Orvane/tunvo_plugin.log" for appending (once: later calls find it open), applies the module's
// level from the settings file and writes the five banner lines. Without a home folder nothing is written.
void PluginOpenLog();

// Formats and writes one line, "0,,,, " + text, behind the file log's line header. `level` records the
// message's weight (0 errors ... 5 parameter dumps) but neither filters nor shows. No newline is added.
void PluginWriteLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Closes the log file: the result of the log's Close(), or 0 without a log. Lines written until the next
// PluginOpenLog() are dropped.
int PluginCloseLog();

#endif
