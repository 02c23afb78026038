// The launched service and the relay between page and service, as both ends see it.
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PluginTestSupport.h"

namespace {

const std::string kRoot = TestRoot::path();

// A test root with a current client installed; the page answers from `answers`.
class ServiceRelayTest : public PluginTest {
protected:
    void SetUp() override {
        // The service leaves its launcher behind; as the subreaper this process can reap it when a
        // test kills it, so that its pid really names no process any more.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        TestRoot::reset();
        TestRoot::installClient();
        ASSERT_EQ(0, browser.initialize());
        browser.page = [this](const std::string& function, const std::string& argument) -> std::optional<std::string> {
            if (function != "c_addcomm") return std::nullopt;
            messages.push_back(argument);
            if (answers.empty()) return std::string("");
            std::string next = answers.front();
            answers.erase(answers.begin());
            return next;
        };
    }
    void TearDown() override { TestRoot::stopService(); }

    static int servicePid() { return TestRoot::servicePid(); }
    static std::vector<std::string> serviceRequests() { return TestRoot::serviceRequests(); }

    std::vector<std::string> messages;  // c_addcomm texts the page received
    std::vector<std::string> answers;   // what the page answers, in order ("" once they run out)
};

TEST_F(ServiceRelayTest, RelaysBothWaysWithSequenceNumbersAcrossInstances) {
    answers = {"hello", "a b&c"};
    FakeBrowser::Instance* first = browser.create({{"last_param", "1"}, {"user", "bob"}});
    browser.pump(7);
    EXPECT_EQ("user=bob&browser_pid=" + std::to_string(getpid()) + "&", readFile(kRoot + "var/run/params.txt"));
    std::vector<std::string> seen = serviceRequests();
    ASSERT_GE(seen.size(), 3u);
    EXPECT_EQ("GET /vpn.php?CONNECT HTTP/1.0", seen[0]);
    EXPECT_EQ("GET /vpn.php?hello&z=0 HTTP/1.0", seen[1]);
    EXPECT_EQ("GET /vpn.php?a b&c&z=1 HTTP/1.0", seen[2]) << "the page's text goes in unescaped";
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ("connected", messages[0]);
    EXPECT_EQ("ack:hello&z=0", messages[1]);

    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(first));
    for (int i = 0; i < 100 && servicePid() != 0; ++i) usleep(20000);
    EXPECT_EQ(0, servicePid()) << "destroying the instance stops the service it started";

    size_t before = serviceRequests().size();
    answers = {"again"};
    browser.create({{"last_param", "1"}});
    browser.pump(3);
    seen = serviceRequests();
    ASSERT_GE(seen.size(), before + 2);
    EXPECT_EQ("GET /vpn.php?CONNECT HTTP/1.0", seen[before]);
    EXPECT_NE(std::string::npos, seen[before + 1].find("?again&z=")) << seen[before + 1];
    EXPECT_EQ(std::string::npos, seen[before + 1].find("&z=0 ")) << "the sequence is never reset";
}

TEST_F(ServiceRelayTest, EmptyAnswersAreSentAsInfo) {
    browser.create({{"last_param", "1"}});
    browser.pump(3);
    std::vector<std::string> seen = serviceRequests();
    ASSERT_GE(seen.size(), 2u);
    EXPECT_EQ("GET /vpn.php?INFO&z=0 HTTP/1.0", seen[1]);
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

TEST_F(ServiceRelayTest, AGoneServiceDropsTheSession) {
    answers = {"one"};
    browser.create({{"last_param", "1"}});
    browser.pump(1);  // the connect request; the page call is next
    int pid = servicePid();
    ASSERT_GT(pid, 0);
    kill(pid, SIGKILL);  // gone without removing its pid file
    waitpid(pid, nullptr, 0);
    browser.pump(3);
    EXPECT_EQ("ssldrop", messages.back());
    EXPECT_TRUE(logged("[PluginInstance_URLNotify] ERROR!  tunvo (/proc/" + std::to_string(pid) + "/cmdline) not found error=2"))
        << log().substr(log().size() > 3000 ? log().size() - 3000 : 0);
}

TEST_F(ServiceRelayTest, ARunningServiceIsLeftAlone) {
    browser.create({{"last_param", "1"}});
    browser.pump(1);
    int pid = servicePid();
    FakeBrowser::Instance* second = browser.create({{"last_param", "1"}});
    EXPECT_EQ(1u, count(browser.pageCalls(), "javascript:c_addcomm('&sslsetstatus,v1,disconnectedwitherror,1')"));
    EXPECT_TRUE(logged("[LaunchVPN] tunvo server already launched, pid=" + std::to_string(pid) + "\n"));
    browser.destroy(second);
    EXPECT_EQ(0, kill(pid, 0)) << "the instance that found it running does not stop it";
}

TEST_F(ServiceRelayTest, AMissingClientIsReportedToThePage) {
    unlink((kRoot + "etc/version.txt").c_str());
    NPError created = -1;
    browser.create({{"last_param", "1"}}, &created);
    EXPECT_EQ(0, created);
    EXPECT_EQ(1u, count(browser.pageCalls(), "javascript:VPNNotInstalled()"));
    EXPECT_EQ(0, servicePid());
}

}  // namespace
