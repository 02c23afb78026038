// A page call the plug-in asks for as a javascript: URL, read the way a browser would read it, but parsed,
// never run as script.
#ifndef PASSWAY_HOST_PAGECALL_H
#define PASSWAY_HOST_PAGECALL_H

#include <string>
#include <vector>

struct PageCall {
    // One argument: a number, or a text.
    struct Argument {
        bool isNumber = false;
        double number = 0;
        std::string text;
    };
    std::string function;
    std::vector<Argument> arguments;
};

// Reads "javascript:NAME(ARGS)" into `call`: the URL is percent-decoded as browsers do; NAME must be a plain
// identifier; ARGS is nothing, one number literal (decimal or hexadecimal, with a sign), or one text between
// single or double quotes, whose JavaScript escapes (\' \\ \n \xHH \uHHHH ...) are read as a browser reads
// them and in which a quote stays text. A trailing ";" is allowed. Returns false, with the reason in `why`,
// for anything else (a browser would stop at the syntax error and call nothing).
bool parsePageCall(const std::string& url, PageCall& call, std::string& why);

// "%XX" sequences turned into their bytes; a "%" not followed by two hex digits stays as it is.
std::string percentDecode(const std::string& text);

#endif
