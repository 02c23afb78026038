// The launched service and the relay between page and service, as both ends see it.
#include <sys/wait.h>
#include <unistd.h>

#include "PluginTestSupport.h"

namespace {

class ServiceRelayTest : public LivePluginTest {
protected:
    void SetUp() override {
        LivePluginTest::SetUp();
        installClient();
    }
    static std::vector<std::string> requests() { return lines(readFile(kRoot + "var/run/requests.log")); }
};

TEST_F(ServiceRelayTest, RelaysBothWaysWithSequenceNumbersAcrossInstances) {
    answers = {"hello", "it's a \"b\"&c"};
    NPError created = -1;
    FakeBrowser::Instance* first = browser.create({{"last_param", "1"}, {"user", "bob"}}, &created);
    EXPECT_EQ(0, created);
    browser.pump(8);
    EXPECT_EQ("user=bob&browser_pid=" + std::to_string(getpid()) + "&", readFile(kRoot + "var/run/params.txt"));
    // The page's text goes in unescaped; an empty answer is sent as INFO.
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?CONNECT HTTP/1.0", "GET /vpn.php?hello&z=0 HTTP/1.0",
                                        "GET /vpn.php?it's a \"b\"&c&z=1 HTTP/1.0", "GET /vpn.php?INFO&z=2 HTTP/1.0"}),
              requests());
    EXPECT_EQ((std::vector<std::string>{"connected", "ack:hello&z=0", "ack:it's a \"b\"&c&z=1", "ack:INFO&z=2"}), messages);
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(first));
    for (int i = 0; i < 100 && servicePid() != 0; ++i) usleep(20000);
    EXPECT_EQ(0, servicePid()) << "destroying the instance stops the service it started";

    answers = {"again"};
    browser.create({{"last_param", "1"}});
    browser.pump(3);
    EXPECT_EQ("GET /vpn.php?again&z=4 HTTP/1.0", requests().back()) << "the sequence is never reset";
}

TEST_F(ServiceRelayTest, TheServiceSwitchesLoggingDownAndUp) {
    answers = {"say=LOGGING_DISABLE", "next", "say=LOGGING_ENABLE", "last"};
    browser.create({{"last_param", "1"}});
    browser.pump(5);
    EXPECT_NE(std::string::npos, readFile(home.inFolder("orvane.conf")).find("default_log_level=31"));
    EXPECT_TRUE(logged("0,,,, log level has been changed to 31\n"));
    browser.pump(4);
    EXPECT_NE(std::string::npos, readFile(home.inFolder("orvane.conf")).find("default_log_level=63"));
    EXPECT_TRUE(logged("0,,,, log level has been changed to 63\n"));
}

// While the page relays, a service whose pid file names no process ends the session; a pid file that is gone
// says nothing.
TEST_F(ServiceRelayTest, AGoneServiceDropsTheSession) {
    const struct { const char* shows; std::function<std::string(int pid)> act; const char* last; } rows[] = {
        {"killed", [](int pid) { kill(pid, SIGKILL), waitpid(pid, nullptr, 0); return "/proc/" + std::to_string(pid); }, "ssldrop"},
        {"an empty pid file", [](int) { writeFile(kRoot + "var/run/tunvo.pid", ""); return std::string("/proc/0"); }, "ssldrop"},
        {"no pid file", [](int) { unlink((kRoot + "var/run/tunvo.pid").c_str()); return std::string(); }, "ack:one&z=0"},
    };
    for (const auto& row : rows) {
        messages.clear();
        answers = {"one"};
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
        browser.pump(1);  // the connect request; the page call is next
        int pid = servicePid();
        ASSERT_GT(pid, 0);
        std::string proc = row.act(pid);
        browser.pump(3);
        EXPECT_EQ(row.last, messages.back()) << row.shows;
        EXPECT_EQ(!proc.empty(), logged("[PluginInstance_URLNotify] ERROR!  tunvo (" + proc + "/cmdline) not found error=2"))
            << row.shows;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        stopService();  // before the instance stops it: an empty pid file would signal this process group
        browser.destroy(instance);
    }
}

TEST_F(ServiceRelayTest, ARunningServiceIsLeftAlone) {
    browser.create({{"last_param", "1"}});
    browser.pump(1);
    int pid = servicePid();
    NPError created = -1;
    browser.destroy(browser.create({{"last_param", "1"}}, &created));
    EXPECT_EQ(0, created);
    EXPECT_EQ(1u, count(browser.urls(true), "javascript:c_addcomm('&sslsetstatus,v1,disconnectedwitherror,1')"));
    EXPECT_TRUE(logged("[LaunchVPN] tunvo server already launched, pid=" + std::to_string(pid) + "\n"));
    EXPECT_EQ(0, kill(pid, 0)) << "the instance that found it running does not stop it";
}

}  // namespace
