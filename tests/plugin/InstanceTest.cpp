// Instances as a portal page and the local service see them: parameters, the one action, the probe's
// exchange, the direct query, the drop, and refused calls.
#include <unistd.h>

#include "FakeService.h"
#include "PluginTestSupport.h"

namespace {

const std::string kPid = std::to_string(getpid());

TEST_F(LivePluginTest, ParametersPassToTheServiceUnescapedAndTheFirstMatchingNameDecides) {
    NPError created = -1;
    browser.create({}, &created);
    EXPECT_EQ(0, created);
    EXPECT_TRUE(logged("[NS_NewPluginInstance] vpnA:='browser_pid=" + kPid + "&'\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] nothing to do\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] User Agent:'" + browser.userAgent + "'\n"));
    EXPECT_TRUE(logged("0,,,, [PluginOpenLog] Plugin version:'7135.2016.429.1'\n"));
    browser.create({{"a", "1&b=2"}, {"", "empty name"}, {"x y", "'q'"}, {"_userpassword", "s3cret"},
                    {"_installmethod", "SUDO"}});
    EXPECT_TRUE(logged("vpnA:='a=1&b=2&=empty name&x y='q'&browser_pid=" + kPid + "&'\n"));
    EXPECT_EQ(std::string::npos, log().find("s3cret")) << "the password never reaches the log";
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _userpassword='**********'\n"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _installmethod='SUDO'\n"));
    // Names match by substring; install wins over probe, probe over launch.
    FakeService service;
    browser.create({{"my_probevpn_x", ""}, {"last_param", ""}});
    browser.create({{"_installvpn_signature", ""}, {"_probevpn", ""}, {"hostrooturl", "http://portal"},
                    {"tunvourl", "/pkg"}, {"tunvosize", "12ab"}});
    EXPECT_EQ((std::vector<std::string>{"http://127.0.0.1:44444/vpn.php?INFO", "http://portal/pkg"}), browser.urls(false));
    EXPECT_EQ(1u, count(browser.urls(true), "javascript:onTunvoDownloadStart(12ab)"));
    EXPECT_TRUE(logged("[NS_NewPluginInstance] install='1' plugin->probeVpn='1' _last_param='0'\n"));
}

TEST_F(LivePluginTest, HugeAndOddParametersAreHandled) {
    FakeBrowser::Parameters many;
    for (int i = 0; i < 1000; ++i) many.push_back({"name" + std::to_string(i), "value"});
    many.insert(many.end(), {{std::string(65536, 'n'), std::string(65536, 'v')}, {"", ""}, {"signature", std::string(65536, 's')}});
    NPError created = -1;
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(browser.create(many, &created)));
    EXPECT_EQ(0, created);
}

// The probe asks the service once and hands its reply to the page once: a header block is cut off, a zero
// byte ends the text, anything else arrives as it was.
TEST_F(LivePluginTest, TheProbeHandsTheServiceReplyToThePage) {
    std::string big;
    for (int i = 0; i < 1 << 20; ++i) big += "a'\n\"\\"[i % 5];
    const struct { const char* shows; std::string reply, message; } rows[] = {
        {"a header block is cut", "X-Status: 1\r\n\r\npayload", "payload"},
        {"a blank line first stays", "\r\n\r\nwhole", "\r\n\r\nwhole"},
        {"an empty reply", "", ""},
        {"quotes and backslashes", "it's \"quoted\"\nand \\ on", "it's \"quoted\"\nand \\ on"},
        {"a zero byte ends it", std::string("abc\0def", 7), "abc"},
        {"a megabyte", big, big},
    };
    FakeService service;
    for (const auto& row : rows) {
        service.setReply([&row](const std::string&) { return row.reply; });
        messages.clear();
        size_t before = service.requests().size();
        browser.create({{"_probevpn", "1"}});
        browser.pump();
        EXPECT_EQ(std::vector<std::string>{row.message}, messages) << row.shows;
        EXPECT_EQ(before + 1, service.requests().size()) << row.shows;
    }
    EXPECT_EQ("GET /vpn.php?INFO HTTP/1.0", service.requests()[0]);
    EXPECT_TRUE(logged("[sendToJavaScript] Data from server ='" + big + "'\n")) << "a long line is logged whole";
    EXPECT_TRUE(logged("[sendToTunvo] It's probeVpn responce. Terminate work\n"));
    EXPECT_FALSE(logged("ERROR!"));
}

// When the browser's request fails, the plug-in asks the service itself (one read of at most 1000 bytes,
// cut at its blank line); no service drops the session.
TEST_F(LivePluginTest, ANetworkErrorFallsBackToADirectQuery) {
    const struct { const char* shows; bool service; std::string raw; bool noStandardInput; std::string message; } rows[] = {
        {"an answer", true, "", false, "direct answer"},
        {"no blank line", true, "no blank line here", false, ""},
        {"a long reply", true, "HTTP/1.1 200 OK\r\n\r\n" + std::string(2000, 'r'), false, std::string(1000 - 19, 'r')},
        {"descriptor 0 for the socket", true, "", true, "direct answer"},
        {"no service", false, "", false, "ssldrop"},
    };
    browser.failNetwork = true;
    for (const auto& row : rows) {
        std::unique_ptr<FakeService> service(row.service ? new FakeService : nullptr);
        if (service) service->setReply([](const std::string&) { return std::string("direct answer"); });
        if (service) service->setRawReply(row.raw);
        messages.clear();
        browser.create({{"_probevpn", "1"}});
        int input = row.noStandardInput ? dup(0) : -1;
        if (row.noStandardInput) close(0);
        browser.pump();
        if (input >= 0) dup2(input, 0), close(input);
        EXPECT_EQ(std::vector<std::string>{row.message}, messages) << row.shows;
        if (service) {
            EXPECT_EQ(std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.1"}, service->requests()) << row.shows;
        }
    }
    EXPECT_TRUE(logged("[PluginInstance_URLNotify] ERROR! Network Error.\n"));
    EXPECT_TRUE(logged("[GetDataFromTunvo] connect() failed=Connection refused\n"));
    EXPECT_EQ("geturl", browser.calls().back().function) << "the drop asks for no notification";
}

TEST_F(LivePluginTest, RefusedCallsAreLoggedAndEndTheExchange) {
    FakeService service;
    const struct { const char* refused; FakeBrowser::Parameters parameters; NPError created; const char* line; } rows[] = {
        {"javascript:c_addcomm", {{"_probevpn", "1"}}, 0,
         "[sendToJavaScript] ERROR! cannot call GetURL. url='javascript:c_addcomm('OK')', errorcode='1'\n"},
        {"http://127.0.0.1:44444/vpn.php?INFO", {{"_probevpn", "1"}}, 0, "[NS_NewPluginInstance] Error call of NS_probeVpn. '-7'\n"},
        {"javascript:onTunvoDownloadStart", {{"_installvpn", ""}, {"hostrooturl", "http://portal"}, {"tunvourl", "/pkg"}},
         NPERR_OUT_OF_MEMORY_ERROR, "[NS_NewPluginInstance] return error code of download=-1\n"},
    };
    for (const auto& row : rows) {
        std::string prefix = row.refused;
        browser.refuse = [prefix](const std::string& url) { return url.rfind(prefix, 0) == 0 ? NPERR_GENERIC_ERROR : NPERR_NO_ERROR; };
        NPError created = -1;
        browser.create(row.parameters, &created);
        browser.pump();
        EXPECT_EQ(row.created, created) << row.refused;
        EXPECT_TRUE(logged(row.line)) << row.refused;
    }
}

}  // namespace
