// passway-host as the extension sees it: messages in, messages out, the test plug-in in between; its bridge
// in this process, then the program itself.
#include <gtest/gtest.h>

#include <sys/prctl.h>

#include "Bridge.h"
#include "FakeService.h"
#include "HostLog.h"
#include "TestSupport.h"

using nlohmann::json;

namespace {

const json kHello = {{"op", "hello"}, {"version", 1}, {"userAgent", "Agent/1.0"}};
const NpapiHost::Parameters kProbe = {{"type", "application/x-orvane-sslvpn"}, {"width", "1"}, {"_probevpn", "1"}};

class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        setHostLogSink([this](const std::string& line) { hostLog += line, refusals += line.find("refused (") == 14; });
    }
    // Sends a message (or, given as a string, a frame's text) and carries what the plug-in asks for, answering
    // its page calls with nothing. A stale EINTR in errno must change nothing.
    void send(const json& message) {
        bridge.onFrame(message.is_string() ? message.get<std::string>() : message.dump());
        errno = EINTR;
        bridge.run();
        while (answered < sent.size())
            if (sent[answered++]["op"] == "call") send({{"op", "result"}, {"call", sent[answered - 1]["call"]}});
    }
    void create(const NpapiHost::Parameters& attributes) { send({{"op", "create"}, {"element", 4}, {"attributes", attributes}}); }

    TempHome home;
    std::string hostLog, calls, frame;  // calls: each page call as function[args]
    size_t refusals = 0, answered = 0;
    std::vector<json> sent;
    FrameReader replies;
    uint32_t length = 0;
    FrameWriter out{[this](const char* data, size_t size) {
        for (replies.feed(data, size); replies.next(frame, length) == FrameReader::Result::Frame;) {
            sent.push_back(json::parse(frame));
            calls += sent.back()["op"] == "call" ? sent.back()["function"].get<std::string>() + sent.back()["args"].dump() + " " : "";
        }
        return true;
    }};
    Bridge bridge{PASSWAY_TEST_PLUGIN, out};
};

// Every bad frame gets its numbered error (with the refused op or value, when given here) and a log line.
TEST_F(BridgeTest, BadInputGetsItsNumberedErrorAndALogLine) {
    const struct { const char *shows, *frame; int code; const char* refused; } rows[] = {
        {"not JSON", "{\"op\":", 1, ""},
        {"not an object", "[1,2]", 1, ""},
        {"an op that is no text", R"({"op":5})", 4, "5"},
        {"an unknown op", R"({"op":"part","id":1,"data":""})", 3, "\"part\""},
        {"a message before hello", R"({"op":"create","element":1,"attributes":[]})", 8, "\"create\""},
        {"another version", R"({"op":"hello","version":2,"userAgent":"x"})", 2, ""},
        {"hello without its agent", R"({"op":"hello","version":1})", 4, "\"hello\""},
        {"hello (an origin that is no text is ignored)", R"({"op":"hello","version":1,"userAgent":"x","origin":5})", 0, ""},
        {"a second hello", R"({"op":"hello","version":1,"userAgent":"x"})", 4, "\"hello\""},
        {"an element", R"({"op":"create","element":1,"attributes":[]})", 0, ""},
        {"attributes that are not pairs", R"({"op":"create","element":2,"attributes":[["a"]]})", 4, "\"create\""},
        {"an element id that is text", R"({"op":"destroy","element":"1"})", 4, "\"destroy\""},
        {"an element made twice", R"({"op":"create","element":1,"attributes":[]})", 6, ""},
        {"a result for no call", R"({"op":"result","call":77,"value":"x"})", 7, ""},
        {"data for no request", R"({"op":"data","request":77,"data":""})", 7, ""},
        {"a request id that is text", R"({"op":"data","request":"77","data":""})", 4, "\"data\""},
    };
    for (const auto& row : rows) {
        size_t before = sent.size();
        send(row.frame);
        ASSERT_EQ(before + 1, sent.size()) << row.shows;
        EXPECT_EQ(row.code, sent.back().value("code", 0)) << row.shows;
        EXPECT_TRUE(!*row.refused || sent.back()["refused"].dump() == row.refused) << row.shows << ": " << sent.back();
    }
    EXPECT_EQ(std::size(rows) - 2, refusals) << "every refusal (all but the hello and the element) is logged";
    Bridge("/nonexistent/libtunvo_plugin.so", out).onFrame(kHello.dump());
    EXPECT_EQ(5, sent.back()["code"]) << "a plug-in that cannot load";
}

// A refused connection ends the request without a stream, and the page hears the session dropped; a reply
// reaches the page as the text of its call (a quote in it is text; %27 reads as a browser reads it), carried
// by the host (the plug-in would ask the service itself after a failed request).
TEST_F(BridgeTest, AServiceReplyReachesThePageAsTextAndARefusedConnectionDropsTheSession) {
    send(kHello);
    create(kProbe);
    EXPECT_NE(std::string::npos, hostLog.find("connect failed"));
    EXPECT_EQ(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("[PluginInstance_NewStream]"));
    EXPECT_EQ("c_addcomm[\"ssldrop\"] ", calls);
    send({{"op", "destroy"}, {"element", 4}});
    calls.clear();
    FakeService service;
    service.setReply([](const std::string&) { return std::string("it's <b>%27"); });
    create(kProbe);
    for (int fd = bridge.watched().at(0); calls.empty(); bridge.run()) {
        errno = EINTR;
        bridge.onReadable(fd);
    }
    EXPECT_EQ("c_addcomm[\"it's <b>'\"] ", calls);
    EXPECT_EQ(std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}, service.requests()) << "and not the plug-in's own";
}

class PackageTest : public BridgeTest {
protected:
    void SetUp() override {
        BridgeTest::SetUp();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        send(kHello);
    }
    // An installing element whose fetch is answered; returns the fetch's request id.
    json install(const std::string& size) {
        create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                {"tunvosize", size}, {"signature", opensslBase64(signDigest("test-signing-key.pem", opensslMd5(package)))},
                {"_installmethod", "sudo"}, {"_userpassword", "pw"}});
        json request = sent.back()["request"];
        send({{"op", "response"}, {"request", request}, {"status", 200}, {"mimeType", "application/x-tar"}});
        return request;
    }
    // A piece of the body in the extension's own layout, which is read without the JSON library (a leading
    // zero, which JSON does not allow, shows it).
    void deliver(const json& request, const std::string& bytes) {
        send("{\"op\":\"data\",\"request\":0" + request.dump() + ",\"data\":\"" + opensslBase64(bytes) + "\"}");
    }
    std::string package = readFile(TEST_INSTALLER);
};

TEST_F(PackageTest, TheFetchedPackageIsStreamedVerifiedAndInstalled) {
    json request = install(std::to_string(package.size()));
    send({{"op", "data"}, {"request", request}, {"data", opensslBase64(package.substr(0, 100))}});
    deliver(request, package.substr(100));
    send({{"op", "end"}, {"request", request}, {"ok", true}});
    std::string size = std::to_string(package.size()) + ".0]";
    EXPECT_EQ("onTunvoDownloadStart[" + size + " onTunvoDownloadProgress[0.0] onTunvoDownloadProgress[100.0] "
              "onTunvoDownloadProgress[" + size + " onTunvoDownloadDone[] onTunvoInstalling[] VPNInstallationOK[] ",
              calls);
    EXPECT_EQ("SUDO\npw\n", readFile(std::string(PASSWAY_TEST_ROOT) + "var/run/installer.log"));
}

TEST_F(PackageTest, NoPartialPackageStaysWhenTheBodyBreaksOrTheTabCloses) {
    for (bool tabCloses : {false, true}) {
        json request = install("12ab");  // a size the page call cannot carry: no start call, the download goes on
        deliver(request, package.substr(0, 100));
        std::string log = readFile(home.inFolder("tunvo_plugin.log")), file = log.substr(log.rfind("tmp file name=") + 14);
        file.resize(file.find('\n'));
        ASSERT_EQ(0, access(file.c_str(), F_OK));
        if (tabCloses)
            bridge.shutdown();
        else
            send({{"op", "end"}, {"request", request}, {"ok", false}, {"error", "reset"}});
        EXPECT_NE(0, access(file.c_str(), F_OK)) << (tabCloses ? "tab closed" : "network failure");
        send({{"op", "destroy"}, {"element", 4}});
    }
}

// passway-host ends when the tab closes its input.
TEST(HostProgram, EndsWithItsInput) { EXPECT_EQ(0, runCommand({PASSWAY_HOST}).exitCode); }

}  // namespace
