// passway-host's log: one line per event on standard error, which the browser keeps with its own log.
#ifndef PASSWAY_HOST_HOSTLOG_H
#define PASSWAY_HOST_HOSTLOG_H

#include <functional>
#include <string>

// printf-style; the line gets the prefix "passway-host: " and a line feed.
void hostLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A URL as the log shows it: without its query (session tokens travel there) and its fragment; of a
// javascript: URL only the function's name, as "javascript:NAME(...)" (its argument may carry a reply of
// the service). Every log line that shows a URL shows it through this.
std::string urlForLog(const std::string& url);
// Where the lines go (standard error by default); tests catch them here.
void setHostLogSink(std::function<void(const std::string& line)> sink);

#endif
