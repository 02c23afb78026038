// Instances as a portal page and the local service see them: parameters, the one action, the probe's
// exchange, the direct query, the drop, and inputs no page should send.
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include "FakeService.h"
#include "PluginTestSupport.h"

namespace {

const std::string kPid = std::to_string(getpid());
const std::string kProbeUrl = "http://127.0.0.1:44444/vpn.php?INFO";

class InstanceTest : public PluginTest {
protected:
    void SetUp() override { ASSERT_EQ(0, browser.initialize()); }
    // The c_addcomm messages the page received, in order.
    std::vector<std::string> messages;
    void recordMessages(std::optional<std::string> answer = std::nullopt) {
        browser.page = [this, answer](const std::string& function, const std::string& argument) {
            if (function == "c_addcomm") messages.push_back(argument);
            return answer;
        };
    }
};

TEST_F(InstanceTest, NoParametersDoNothingAndStillSucceed) {
    NPError created = -1;
    browser.create({}, &created);
    EXPECT_EQ(0, created);
    EXPECT_TRUE(logged("[NS_NewPluginInstance] vpnA:='browser_pid=" + kPid + "&'\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] nothing to do\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] User Agent:'" + browser.userAgent + "'\n"));
    EXPECT_TRUE(browser.httpRequests().empty());
}

TEST_F(InstanceTest, OtherParametersPassToTheServiceUnescaped) {
    browser.create({{"a", "1&b=2"}, {"", "empty name"}, {"x y", "'q'"}, {"_userpassword", "s3cret"},
                    {"_installmethod", "SUDO"}});
    EXPECT_TRUE(logged("vpnA:='a=1&b=2&=empty name&x y='q'&browser_pid=" + kPid + "&'\n"));
    EXPECT_EQ(std::string::npos, log().find("s3cret")) << "the password never reaches the log";
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _userpassword='**********'\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _installmethod='SUDO'\n"));
}

TEST_F(InstanceTest, NamesMatchBySubstringAndInstallWinsOverProbeOverLaunch) {
    FakeService service;
    browser.create({{"my_probevpn_x", ""}, {"last_param", ""}});
    browser.create({{"_installvpn_signature", ""}, {"_probevpn", ""}, {"hostrooturl", "http://portal"},
                    {"tunvourl", "/pkg"}, {"tunvosize", "12ab"}});
    EXPECT_EQ((std::vector<std::string>{kProbeUrl, "http://portal/pkg"}), browser.httpRequests())
        << "the probe, then the download: no launch, no probe for the installing instance";
    EXPECT_EQ(1u, count(browser.pageCalls(), "javascript:onTunvoDownloadStart(12ab)"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] install='1' plugin->probeVpn='1' _last_param='0'\n"));
}

TEST_F(InstanceTest, ProbeMakesOneRequestAndOnePageCall) {
    FakeService service;
    service.setReply([](const std::string&) { return std::string("&sslsetstatus,v1,connected,1"); });
    recordMessages(std::string("NEXT_MESSAGE"));
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}), service.requests());
    EXPECT_EQ((std::vector<std::string>{"&sslsetstatus,v1,connected,1"}), messages);
    EXPECT_TRUE(logged("[sendToTunvo] It's probeVpn responce. Terminate work\n"));
}

TEST_F(InstanceTest, RepliesLoseAHeaderBlockButKeepEverythingElse) {
    FakeService service;
    recordMessages();
    for (const char* body : {"X-Status: 1\r\n\r\npayload", "\r\n\r\nwhole", "", "it's \"quoted\"\nand \\ on"}) {
        service.setReply([body](const std::string&) { return std::string(body); });
        browser.create({{"_probevpn", "1"}});
        browser.pump();
    }
    EXPECT_EQ((std::vector<std::string>{"payload", "\r\n\r\nwhole", "", "it's \"quoted\"\nand \\ on"}), messages);
}

TEST_F(InstanceTest, AZeroByteEndsTheReplyButNotTheCall) {
    FakeService service;
    service.setReply([](const std::string&) { return std::string("abc\0def", 7); });
    recordMessages();
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    EXPECT_EQ(1u, count(browser.pageCalls(), "javascript:c_addcomm('abc')"));
}

TEST_F(InstanceTest, NetworkErrorFallsBackToADirectQuery) {
    FakeService service;
    service.setReply([](const std::string&) { return std::string("direct answer"); });
    browser.failNetwork = true;
    recordMessages();
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.1"}), service.requests()) << "the plug-in's own query";
    EXPECT_EQ((std::vector<std::string>{"direct answer"}), messages);
    EXPECT_TRUE(logged("[PluginInstance_URLNotify] ERROR! Network Error.\n"));
}

TEST_F(InstanceTest, ASilentServiceBlocksOnlyTheDirectQuery) {
    FakeService service;
    service.setSilent(true);
    browser.failNetwork = true;
    pid_t child = fork();
    if (child == 0) {  // the blocking happens here, in a child that the test can end
        browser.create({{"_probevpn", "1"}});
        browser.pump();
        _exit(0);
    }
    bool blocked = false;
    for (int i = 0; i < 100 && !blocked; ++i) {
        usleep(20000);
        const std::string last = "0,,,, [GetDataFromTunvo]\n";
        std::string text = log();
        blocked = text.size() >= last.size() && text.compare(text.size() - last.size(), last.size(), last) == 0 &&
                  service.requests().size() == 1;
    }
    int status = 0;
    EXPECT_EQ(0, waitpid(child, &status, WNOHANG)) << "the direct query waits for the service without a time-out";
    EXPECT_TRUE(blocked) << "and it is the only thing waiting: everything before it ran";
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
}

TEST_F(InstanceTest, UnreachableServiceDropsTheSession) {
    browser.failNetwork = true;
    recordMessages();
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    EXPECT_EQ((std::vector<std::string>{"ssldrop"}), messages);
    EXPECT_EQ("geturl", browser.calls().back().function) << "the drop asks for no notification";
    EXPECT_TRUE(logged("[GetDataFromTunvo] connect() failed=Connection refused\n"));
}

TEST_F(InstanceTest, DirectRepliesAreCutAtTheirBlankLine) {
    FakeService service;
    browser.failNetwork = true;
    recordMessages();
    service.setRawReply("no blank line here");
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    service.setRawReply("HTTP/1.1 200 OK\r\n\r\n" + std::string(2000, 'r'));
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    ASSERT_EQ(2u, messages.size());
    EXPECT_EQ("", messages[0]);
    EXPECT_EQ(std::string(1000 - 19, 'r'), messages[1]) << "one read of at most 1000 bytes";
}

TEST_F(InstanceTest, RefusedCallsAreLoggedAndEndTheExchange) {
    FakeService service;
    browser.refuse = [](const std::string& url) {
        return url.rfind("javascript:c_addcomm", 0) == 0 ? NPERR_GENERIC_ERROR : NPERR_NO_ERROR;
    };
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    EXPECT_TRUE(logged("[sendToJavaScript] ERROR! cannot call GetURL. url='javascript:c_addcomm('OK')', errorcode='1'\n"));

    browser.refuse = [](const std::string& url) { return url == kProbeUrl ? NPERR_INVALID_URL : NPERR_NO_ERROR; };
    NPError created = -1;
    browser.create({{"_probevpn", "1"}}, &created);
    EXPECT_EQ(0, created);
    EXPECT_TRUE(logged("[NS_NewPluginInstance] Error call of NS_probeVpn. '-7'\n"));

    browser.refuse = [](const std::string& url) {
        return url.rfind("javascript:onTunvoDownloadStart", 0) == 0 ? NPERR_GENERIC_ERROR : NPERR_NO_ERROR;
    };
    browser.create({{"_installvpn", ""}, {"hostrooturl", "http://portal"}, {"tunvourl", "/pkg"}}, &created);
    EXPECT_EQ(NPERR_OUT_OF_MEMORY_ERROR, created) << "a refused download start releases the instance";
    EXPECT_TRUE(logged("[NS_NewPluginInstance] return error code of download=-1\n"));
}

TEST_F(InstanceTest, HugeAndOddParametersAreHandled) {
    FakeBrowser::Parameters many;
    for (int i = 0; i < 1000; ++i) many.push_back({"name" + std::to_string(i), "value"});
    many.push_back({std::string(65536, 'n'), std::string(65536, 'v')});
    many.push_back({"", ""});
    many.push_back({"signature", std::string(65536, 's')});
    NPError created = -1;
    FakeBrowser::Instance* instance = browser.create(many, &created);
    EXPECT_EQ(0, created);
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(instance));
}

TEST_F(InstanceTest, AMegabyteReplyReachesThePage) {
    FakeService service;
    std::string big;
    for (int i = 0; i < 1 << 20; ++i) big += "a'\n\"\\"[i % 5];
    service.setReply([&big](const std::string&) { return big; });
    recordMessages();
    browser.create({{"_probevpn", "1"}});
    browser.pump();
    ASSERT_EQ(1u, messages.size());
    EXPECT_EQ(big, messages[0]);
}

}  // namespace
