// Page calls read as a browser reads a javascript: URL, but never run as script.
#include <gtest/gtest.h>

#include "PageCall.h"

namespace {

struct Row {
    const char* shows;
    const char* url;
    bool made;
    const char* function;
    const char* text;    // the one text argument, or null
    double number;       // the one number argument, when text is null and `numbered`
    bool numbered;
};

TEST(PageCall, ReadsWhatABrowserWouldPassAndRefusesWhatItCouldNotRun) {
    const Row rows[] = {
        {"no argument", "javascript:onTunvoDownloadDone()", true, "onTunvoDownloadDone", nullptr, 0, false},
        {"a count", "javascript:onTunvoDownloadProgress(64000)", true, "onTunvoDownloadProgress", nullptr, 64000, true},
        {"a signed fraction", "javascript:f(-1.5e2)", true, "f", nullptr, -150, true},
        {"hexadecimal", "javascript:f(0x1F)", true, "f", nullptr, 31, true},
        {"digits then letters", "javascript:onTunvoDownloadStart(12ab)", false, nullptr, nullptr, 0, false},
        {"an expression", "javascript:f(1+1)", false, nullptr, nullptr, 0, false},
        {"a text", "javascript:c_addcomm('connected')", true, "c_addcomm", "connected", 0, false},
        {"a quote inside stays text", "javascript:c_addcomm('it's'); alert('x')", true, "c_addcomm",
         "it's'); alert('x", 0, false},
        {"escapes read as script reads them", "javascript:c_addcomm('a\\'b\\\\c\\nd\\x41\\u00e9')", true, "c_addcomm",
         "a'b\\c\nd" "A\xc3\xa9", 0, false},
        {"percent-decoded first", "javascript:c_addcomm('a%20b%27c%zz%30%7e%7E')", true, "c_addcomm", "a b'c%zz0~~", 0,
         false},
        {"double quotes and a trailing semicolon", "javascript: f(\"x\") ;", true, "f", "x", 0, false},
        {"an empty text", "javascript:c_addcomm('')", true, "c_addcomm", "", 0, false},
        {"a name that is code", "javascript:window.f()", false, nullptr, nullptr, 0, false},
        {"no call", "javascript:f", false, nullptr, nullptr, 0, false},
        {"an unclosed text", "javascript:f('abc)", false, nullptr, nullptr, 0, false},
        {"another scheme", "http://x/f()", false, nullptr, nullptr, 0, false},
    };
    for (const Row& row : rows) {
        PageCall call;
        std::string why;
        ASSERT_EQ(row.made, parsePageCall(row.url, call, why)) << row.shows;
        if (!row.made) {
            EXPECT_FALSE(why.empty()) << row.shows;
            continue;
        }
        EXPECT_EQ(row.function, call.function) << row.shows;
        if (row.text == nullptr && !row.numbered) {
            EXPECT_TRUE(call.arguments.empty()) << row.shows;
            continue;
        }
        ASSERT_EQ(1u, call.arguments.size()) << row.shows;
        EXPECT_EQ(row.numbered, call.arguments[0].isNumber) << row.shows;
        if (row.numbered)
            EXPECT_DOUBLE_EQ(row.number, call.arguments[0].number) << row.shows;
        else
            EXPECT_EQ(row.text, call.arguments[0].text) << row.shows;
    }
}

}  // namespace
