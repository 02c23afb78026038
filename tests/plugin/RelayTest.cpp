// The probe, the direct query and the relay between the portal page and the local service.
#include <sys/wait.h>

#include "PluginTest.h"

namespace {

// The probe asks the service once and hands its reply to the page once: a header block is cut off, a zero
// byte ends the text, anything else arrives as it was. When the browser's request fails, the plug-in asks the
// service itself (one read of at most 1000 bytes, cut at its blank line); no service drops the session.
TEST_F(Live, TheProbeHandsTheServiceReplyToThePage) {
    std::string big;
    for (int i = 0; i < 1 << 20; ++i) big += "a'\n\"\\"[i % 5];
    // the service answers over HTTP, sends raw bytes or is not there
    const struct {
        bool failNetwork, closedInput;
        std::string service, reply, message;
    } rows[] = {
        {false, false, "http", big, big},  // first: its line is logged whole before the log file rotates
        {false, false, "http", "X\r\n\r\npayload", "payload"},
        {false, false, "http", "\r\n\r\nwhole", "\r\n\r\nwhole"},
        {false, false, "http", "it's \"quoted\"\nand \\ on", "it's \"quoted\"\nand \\ on"},
        {false, false, "http", std::string("abc\0def", 7), "abc"},
        {true, false, "http", "direct", "direct"},
        {true, false, "raw", "no blank line here", ""},
        {true, false, "raw", "x", ""},  // one byte is a reply too
        {true, false, "raw", "", "ssldrop"},  // closed without a word: no reply, no service
        {true, false, "raw", "HTTP/1.1 200 OK\r\n\r\n" + std::string(2000, 'r'), std::string(1000 - 19, 'r')},
        {true, true, "http", "direct", "direct"},  // the direct query's socket is descriptor 0
        {true, false, "", "", "ssldrop"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.service + ": " + row.reply.substr(0, 20));
        std::unique_ptr<FakeService> service(row.service.empty() ? nullptr : new FakeService);
        if (service) service->setReply([&row](auto&) { return row.reply; }, row.service == "raw");
        messages.clear();
        browser.failNetwork = row.failNetwork;
        browser.create({{"_probevpn", "1"}});
        int input = row.closedInput ? dup(0) : -1;
        if (row.closedInput) close(0);
        browser.pump();
        if (input >= 0) dup2(input, 0), close(input);
        EXPECT_EQ(std::vector<std::string>{row.message}, messages);
        std::string asked = row.failNetwork ? "GET /vpn.php?INFO HTTP/1.1" : "GET /vpn.php?INFO HTTP/1.0";
        EXPECT_TRUE(!service || service->requests() == std::vector<std::string>{asked}) << asked;
        EXPECT_TRUE(row.reply != big || logged("[sendToJavaScript] Data from server ='" + big + "'\n"));
    }
    EXPECT_EQ(7u, count(log(), "ERROR!")) << "one for each network error, no other";
    EXPECT_TRUE(logged("[GetDataFromTunvo] connect() failed=Connection refused\n"));
    EXPECT_TRUE(logged("[GetDataFromTunvo] read() failed="));
    EXPECT_EQ("geturl", browser.calls().back().function) << "the drop asks for no notification";
}

// A relay session: the page's text goes to the service unescaped with a sequence number that is never reset,
// an empty answer is sent as INFO, the service can switch logging down and up, a second instance finds the
// service running and leaves it alone, and the instance that started it stops it.
TEST_F(Live, RelaysBetweenPageAndService) {
    installClient();
    answers = {"it's a \"b\"&c", "say=LOGGING_DISABLE", "", "say=LOGGING_ENABLE"};
    FakeBrowser::Instance* first = create({{"last_param", "1"}, {"user", "bob"}});
    browser.pump(12);
    EXPECT_EQ("user=bob&browser_pid=" + kPid + "&", readFile(kRun + "params.txt"));
    EXPECT_EQ(
        "GET /vpn.php?CONNECT HTTP/1.0\nGET /vpn.php?it's a \"b\"&c&z=0 HTTP/1.0\n"
        "GET /vpn.php?say=LOGGING_DISABLE&z=1 HTTP/1.0\nGET /vpn.php?INFO&z=2 HTTP/1.0\n"
        "GET /vpn.php?say=LOGGING_ENABLE&z=3 HTTP/1.0\nGET /vpn.php?INFO&z=4 HTTP/1.0\n",
        readFile(kRun + "requests.log"));
    EXPECT_EQ((std::vector<std::string>{"connected", "ack:it's a \"b\"&c&z=0", "LOGGING_DISABLE",
                                        "ack:INFO&z=2", "LOGGING_ENABLE", "ack:INFO&z=4"}),
              messages);
    EXPECT_TRUE(logged("0,,,, log level has been changed to 31\n") &&
                logged("0,,,, log level has been changed to 63\n"));
    EXPECT_NE(std::string::npos, readFile(home.inFolder("orvane.conf")).find("default_log_level=63"));

    int pid = servicePid();
    browser.destroy(create({{"last_param", "1"}}));
    EXPECT_EQ("javascript:c_addcomm('&sslsetstatus,v1,disconnectedwitherror,1')", lastPageCall());
    EXPECT_TRUE(logged("[LaunchVPN] tunvo server already launched, pid=" + std::to_string(pid) + "\n"));
    EXPECT_EQ(0, kill(pid, 0)) << "the instance that found it running does not stop it";
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(first));
    for (int i = 0; i < 100 && servicePid() != 0; ++i) usleep(20000);
    EXPECT_EQ(0, servicePid()) << "destroying the instance stops the service it started";
    answers = {"again"};
    browser.create({{"last_param", "1"}});
    browser.pump(3);
    EXPECT_NE(std::string::npos, readFile(kRun + "requests.log").find("GET /vpn.php?again&z=6 HTTP/1.0\n"));
}

// While the page relays, a pid file that names no process ends the session; a pid file that is gone says
// nothing.
TEST_F(Live, AGoneServiceDropsTheSession) {
    installClient();
    // what becomes of the service, the page's last message
    const std::pair<std::string, std::string> rows[] = {
        {"killed", "ssldrop"}, {"pid file emptied", "ssldrop"}, {"pid file removed", "ack:one&z=0"}};
    for (const auto& [what, last] : rows) {
        answers = {"one"};
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
        browser.pump(1);  // the connect request; the page call is next
        int pid = servicePid();
        size_t before = log().size();
        if (what == "killed") kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
        if (what == "pid file emptied") writeFile(kRun + "tunvo.pid", "");
        if (what == "pid file removed") unlink((kRun + "tunvo.pid").c_str());
        browser.pump(3);
        EXPECT_EQ(last, messages.back()) << what;
        std::string proc = "/proc/" + std::to_string(what == "killed" ? pid : 0);
        EXPECT_EQ(last == "ssldrop", logged("tunvo (" + proc + "/cmdline) not found error=2", before))
            << what;
        kill(pid, SIGKILL), waitpid(pid, nullptr, 0);
        stopService();  // before the instance stops it: an empty pid file would signal this process group
        browser.destroy(instance);
    }
}

}  // namespace
