// File existence by mode bits, environment variables with a fallback, and URL splitting.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "CapturingLog.h"
#include "Platform"
#include "System"
#include "TempHome.h"
#include "Url"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

// isFileExist tests mode bits, not file types: a FIFO has none of them.
TEST(IsFileExist, ModeBitsDecide) {
    TempHome home;
    const std::string fifo = home.path() + "/fifo", dangling = home.path() + "/dangling";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    ASSERT_EQ(0, symlink("/nonexistent", dangling.c_str()));
    const std::pair<const char*, bool> rows[] = {{home.path().c_str(), true}, {"/proc/self/exe", true},
                                                 {"/dev/null", true},          {fifo.c_str(), false},
                                                 {dangling.c_str(), false},    {nullptr, false}};
    for (const auto& row : rows) EXPECT_EQ(row.second, isFileExist(row.first)) << row.first;
}

TEST(SGetEnvironmentVariable, FallsBackForEmptyUnsetAndOverlongValuesAndLogsIt) {
    ScopedCapturingLog log(2);
    const std::string v999(999, 'v'), v1000(1000, 'v');
    const std::pair<const char*, std::string> rows[] = {
        {"value", "value"}, {"", "fb"}, {v999.c_str(), v999}, {v1000.c_str(), "fb"}, {nullptr, "fb"}};
    for (const auto& row : rows) {
        if (row.first) setenv("PASSWAY_TEST_VAR", row.first, 1); else unsetenv("PASSWAY_TEST_VAR");
        EXPECT_EQ(row.second, text(SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb"))) << row.second.size();
    }
    ASSERT_EQ(3u, log.lines().size());
    EXPECT_EQ(0u, log.lines()[0].find("0,,,, GetEnvironmentVariable failed, PASSWAY_TEST_VAR, ")) << log.lines()[0];
    log.SetLogLevel(1);
    SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb");
    EXPECT_EQ(4u, log.lines().size()) << "only the level change: logged only above level 1";
}

TEST(ParseURL_BASIC, SchemesPortsHostsAndPaths) {
    struct Row { const char* url; bool ok; unsigned int scheme; const char* host; unsigned int port; const char* path; };
    const Row rows[] = {
        {"http://127.0.0.1:44444/vpn.php?INFO", true, 1, "127.0.0.1", 44444, "/vpn.php?INFO"},
        {"HTTPS://h/x", true, 2, "h", 443, "/x"},       {"  ftp://files.example  ", true, 3, "files.example", 21, "/"},
        {"file://host\\share\\x", true, 4, "host", 0, "\\share\\x"}, {"h/x", true, 0, "h", 0, "/x"},
        {"http://h:0/", false, 1, "h", 80, "/"},        {"http://h:65536/", false, 1, "h", 80, "/"},
        {"http://h:/", false, 1, "h", 80, "/"},         {"http:///path", false, 1, "", 80, "/path"},
        {"", false, 0, "", 0, "/"},                     {"xhttp://h/", false, 0, "xhttp", 0, "//h/"},
    };
    for (const Row& c : rows) {
        unsigned int scheme = 99, port = 99;
        CString host("stale"), path("stale");
        EXPECT_EQ(c.ok, ParseURL_BASIC(c.url, scheme, host, path, port)) << c.url;
        EXPECT_EQ(std::make_tuple(c.scheme, std::string(c.host), c.port, std::string(c.path)),
                  std::make_tuple(scheme, text(host), port, text(path))) << c.url;
    }
}

}  // namespace
