// Page calls read as a browser reads a javascript: URL, but never run as script.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "PageCall.h"

namespace {

// The call as name(), name(n:NUMBER) or name(t:"TEXT") (numbers and texts as JSON writes them), or "refused".
std::string parsed(const std::string& url) {
    PageCall call;
    std::string why, argument;
    if (!parsePageCall(url, call, why)) return why.empty() ? "refused without a reason" : "refused";
    for (const PageCall::Argument& a : call.arguments)
        argument += a.isNumber ? "n:" + nlohmann::json(a.number).dump() : "t:" + nlohmann::json(a.text).dump();
    return call.function + "(" + argument + ")";
}

TEST(PageCall, ReadsWhatABrowserWouldPassAndRefusesWhatItCouldNotRun) {
    const struct { const char *shows, *url, *call; } rows[] = {
        {"no argument", "javascript:onTunvoDownloadDone()", "onTunvoDownloadDone()"},
        {"a count", "javascript:onTunvoDownloadProgress(64000)", "onTunvoDownloadProgress(n:64000.0)"},
        {"a signed fraction", "javascript:f(-1.5e2)", "f(n:-150.0)"},
        {"hexadecimal in both cases", "javascript:f(0xfF)", "f(n:255.0)"},
        {"underscores, dollars and digits in the name", "JavaScript:$_a1()", "$_a1()"},
        {"a text", "javascript:c_addcomm('connected')", R"(c_addcomm(t:"connected"))"},
        {"a quote inside stays text", "javascript:f('it's'); alert('x')", R"(f(t:"it's'); alert('x"))"},
        {"escapes read as script reads them", R"(javascript:f('a\'b\\c\nd\x41\u00e9\u{1F600}\q\u0000\0'))",
         "f(t:\"a'b\\\\c\\nd" "A\xc3\xa9\xf0\x9f\x98\x80q\\u0000\\u0000\")"},
        {"percent-decoded first", "javascript:f('a%20b%27c%zz%30%7e%7E%2f')", R"(f(t:"a b'c%zz0~~/"))"},
        {"double quotes, spaces and a trailing semicolon", "javascript: f(\"x\") ;", R"(f(t:"x"))"},
        {"digits then letters", "javascript:onTunvoDownloadStart(12ab)", "refused"},
        {"a name that is code", "javascript:window.f()", "refused"},
        {"a name starting with a digit", "javascript:1f()", "refused"},
        {"another scheme", "http://x/f()", "refused"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.call, parsed(row.url)) << row.shows;
}

}  // namespace
