// Process facts, identifiers and URL splitting.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <regex>
#include <string>
#include <unistd.h>

#include "CapturingLog.h"
#include "System"
#include "Types"
#include "Url"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

TEST(SGenerateID, CounterStartTickAndPidInHex) {
    std::string first = text(SGenerateID());
    std::string second = text(SGenerateID());
    std::regex shape("[0-9a-f]{16}-[0-9a-f]{8}-[0-9a-f]{8}");
    EXPECT_TRUE(std::regex_match(first, shape)) << first;
    EXPECT_NE(first.substr(0, 16), second.substr(0, 16));
    EXPECT_EQ(first.substr(16), second.substr(16)) << "only the counter changes";

    DWORD pid = static_cast<DWORD>(getpid());
    char pidHex[9];
    snprintf(pidHex, sizeof pidHex, "%02x%02x%02x%02x", pid & 0xFF, (pid >> 8) & 0xFF, (pid >> 16) & 0xFF, pid >> 24);
    EXPECT_EQ(pidHex, first.substr(26)) << "bytes in memory order, least significant first";
    EXPECT_EQ("0300000000000000", text(SGenerateID()).substr(0, 16)) << "third call of this process";
}

TEST(SGetEnvironmentVariable, FallsBackForEmptyUnsetAndOverlongValues) {
    ScopedCapturingLog log(2);
    setenv("PASSWAY_TEST_VAR", "value", 1);
    EXPECT_EQ("value", text(SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb")));
    setenv("PASSWAY_TEST_VAR", "", 1);
    EXPECT_EQ("fb", text(SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb")));
    setenv("PASSWAY_TEST_VAR", std::string(1000, 'v').c_str(), 1);
    EXPECT_EQ("fb", text(SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb")));
    unsetenv("PASSWAY_TEST_VAR");
    EXPECT_EQ("fb", text(SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb")));
    ASSERT_EQ(3u, log.lines().size());
    EXPECT_EQ(0u, log.lines()[0].find("0,,,, GetEnvironmentVariable failed, PASSWAY_TEST_VAR, ")) << log.lines()[0];

    ScopedCapturingLog quiet(1);
    SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb");
    EXPECT_TRUE(quiet.lines().empty()) << "logged only above level 1";
}

TEST(ModuleFileName, IsTheRunningExecutableAndItsFolder) {
    char expected[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", expected, sizeof expected - 1);
    ASSERT_GT(n, 0);
    expected[n] = '\0';
    EXPECT_EQ(expected, text(SGetModuleFileName(nullptr)));
    std::string dir = text(SGetModulePath(nullptr));
    EXPECT_EQ('/', dir.back());
    EXPECT_EQ(0u, std::string(expected).find(dir));
}

struct UrlCase {
    const char* url;
    bool ok;
    unsigned int scheme;
    const char* host;
    unsigned int port;
    const char* path;
};

TEST(ParseURL_BASIC, SchemesPortsHostsAndPaths) {
    const UrlCase cases[] = {
        {"http://127.0.0.1:44444/vpn.php?INFO", true, 1, "127.0.0.1", 44444, "/vpn.php?INFO"},
        {"HTTPS://h/x", true, 2, "h", 443, "/x"},
        {"  ftp://files.example  ", true, 3, "files.example", 21, "/"},
        {"file://host\\share\\x", true, 4, "host", 0, "\\share\\x"},
        {"h/x", true, 0, "h", 0, "/x"},
        {"http://h:0/", false, 1, "h", 80, "/"},
        {"http://h:65536/", false, 1, "h", 80, "/"},
        {"http://h:/", false, 1, "h", 80, "/"},
        {"http:///path", false, 1, "", 80, "/path"},
        {"", false, 0, "", 0, "/"},
        {"xhttp://h/", false, 0, "xhttp", 0, "//h/"},
    };
    for (const UrlCase& c : cases) {
        unsigned int scheme = 99, port = 99;
        CString host("stale"), path("stale");
        EXPECT_EQ(c.ok, ParseURL_BASIC(c.url, scheme, host, path, port)) << c.url;
        EXPECT_EQ(c.scheme, scheme) << c.url;
        EXPECT_EQ(c.host, text(host)) << c.url;
        EXPECT_EQ(c.port, port) << c.url;
        EXPECT_EQ(c.path, text(path)) << c.url;
    }
}

}  // namespace
