// Page calls read as a browser reads a javascript: URL, but never run as script.
#include <gtest/gtest.h>

#include <cstdio>

#include "PageCall.h"

namespace {

// The call as "name()", "name(n:NUMBER)" or "name(t:TEXT)", or "refused" (with a reason).
std::string parsed(const std::string& url) {
    PageCall call;
    std::string why;
    if (!parsePageCall(url, call, why)) return why.empty() ? "refused without a reason" : "refused";
    std::string out = call.function + "(";
    for (const PageCall::Argument& a : call.arguments) {
        char number[32];
        snprintf(number, sizeof number, "n:%g", a.number);
        out += a.isNumber ? std::string(number) : "t:" + a.text;
    }
    return out + ")";
}

TEST(PageCall, ReadsWhatABrowserWouldPassAndRefusesWhatItCouldNotRun) {
    const struct {
        const char* shows;
        const char* url;
        const char* call;
    } rows[] = {
        {"no argument", "javascript:onTunvoDownloadDone()", "onTunvoDownloadDone()"},
        {"a count", "javascript:onTunvoDownloadProgress(64000)", "onTunvoDownloadProgress(n:64000)"},
        {"a signed fraction", "javascript:f(-1.5e2)", "f(n:-150)"},
        {"a plus sign", "javascript:f(+.5)", "f(n:0.5)"},
        {"hexadecimal in both cases", "javascript:f(0xfF)", "f(n:255)"},
        {"underscores, dollars and digits in the name", "JavaScript:$_a1()", "$_a1()"},
        {"a text", "javascript:c_addcomm('connected')", "c_addcomm(t:connected)"},
        {"a quote inside stays text", "javascript:c_addcomm('it's'); alert('x')", "c_addcomm(t:it's'); alert('x)"},
        {"escapes read as script reads them", "javascript:f('a\\'b\\\\c\\nd\\x41\\u00e9\\u{1F600}\\q')",
         "f(t:a'b\\c\nd" "A\xc3\xa9\xf0\x9f\x98\x80q)"},
        {"percent-decoded first", "javascript:f('a%20b%27c%zz%30%7e%7E%2f')", "f(t:a b'c%zz0~~/)"},
        {"double quotes, spaces and a trailing semicolon", "javascript: f(\"x\") ;", "f(t:x)"},
        {"an empty text", "javascript:f('')", "f(t:)"},
        {"digits then letters", "javascript:onTunvoDownloadStart(12ab)", nullptr},
        {"an expression", "javascript:f(1+1)", nullptr},
        {"a name that is code", "javascript:window.f()", nullptr},
        {"a name starting with a digit", "javascript:1f()", nullptr},
        {"no call", "javascript:f", nullptr},
        {"an unclosed text", "javascript:f('abc)", nullptr},
        {"another scheme", "http://x/f()", nullptr},
    };
    for (const auto& row : rows) EXPECT_EQ(row.call ? row.call : "refused", parsed(row.url)) << row.shows;
}

}  // namespace
