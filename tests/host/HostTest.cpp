// passway-host's parts, then the program itself: page calls read as a browser reads a javascript: URL but
// never run as script; native messaging frames; the bridge as the extension sees it, framed messages in and
// out with the test plug-in in between.
#include <gtest/gtest.h>

#include "Bridge.h"
#include "FakeService.h"
#include "HostLog.h"
#include "PageCall.h"
#include "TestSupport.h"

using nlohmann::json;

namespace {

// The call as name(), name(NUMBER) or name("TEXT") (numbers and texts as JSON writes them), or "refused".
std::string parsed(const std::string& url) {
    PageCall call;
    std::string why, argument;
    if (!parsePageCall(url, call, why)) return why.empty() ? "refused without a reason" : "refused";
    for (const auto& a : call.arguments) argument += a.isNumber ? json(a.number).dump() : json(a.text).dump();
    return call.function + "(" + argument + ")";
}

// Calls without an argument, with a count or with a text show in the bridge's tests below.
TEST(PageCall, ReadsWhatABrowserWouldPassAndRefusesWhatItCouldNotRun) {
    const struct { const char *shows, *url, *call; } rows[] = {
        {"a signed fraction", "javascript:f(-1.5e2)", "f(-150.0)"},
        {"hexadecimal in both cases", "javascript:f(0xfF)", "f(255.0)"},
        {"underscores, dollars and digits in the name", "JavaScript:$_a1()", "$_a1()"},
        {"a quote inside stays text", "javascript:f('it's'); alert('x')", R"(f("it's'); alert('x"))"},
        {"escapes read as script reads them", R"(javascript:f('a\'b\\c\nd\x41\u00e9\u{1F600}\q\u0000\0'))",
         "f(\"a'b\\\\c\\nd" "A\xc3\xa9\xf0\x9f\x98\x80q\\u0000\\u0000\")"},
        {"percent-decoded first", "javascript:f('a%20b%27c%zz%30%7e%7E%2f')", R"(f("a b'c%zz0~~/"))"},
        {"double quotes, spaces and a trailing semicolon", "javascript: f(\"x\") ;", R"(f("x"))"},
        {"digits then letters", "javascript:onTunvoDownloadStart(12ab)", "refused"},
        {"a name that is code", "javascript:window.f()", "refused"},
        {"a name starting with a digit", "javascript:1f()", "refused"},
        {"another scheme", "http://x/f()", "refused"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.call, parsed(row.url)) << row.shows;
}

// Native messaging frames: a message of 3 MiB once escaped goes in parts under the limit that, cut again from
// bytes arriving one at a time, rebuild it; an empty frame follows, then one longer than a browser sends,
// which stops the reader.
TEST(Frames, ALargeMessageGoesInPartsThatRebuildItAndAnOverlongFrameStopsTheReader) {
    std::string bytes, frame, whole, text(3 << 19, '"');
    FrameWriter writer([&](const char* data, size_t size) { return !bytes.append(data, size).empty(); });
    ASSERT_TRUE(writer.send({{"op", "call"}, {"args", {text}}}));
    uint32_t length = kMaxFrameIn + 1;
    bytes += std::string(4, '\0') + std::string(reinterpret_cast<char*>(&length), sizeof length);
    FrameReader reader;
    std::vector<std::string> parts;
    for (char c : bytes)
        for (reader.feed(&c, 1); reader.next(frame, length) == FrameReader::Result::Frame;)
            parts.push_back(frame);
    EXPECT_TRUE(reader.next(frame, length) == FrameReader::Result::TooLarge && length == kMaxFrameIn + 1);
    ASSERT_EQ("", parts.back()) << "the empty frame";
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        EXPECT_LE(parts[i].size(), kMaxFrameOut);
        EXPECT_EQ(i + 2 == parts.size(), json::parse(parts[i]).value("last", false)) << "the last only";
        whole += json::parse(parts[i])["data"].get<std::string>();
    }
    EXPECT_EQ(text, json::parse(whole)["args"][0]);
}

// Frames as the extension sends them.
const char* kHello = R"({"op":"hello","version":1,"userAgent":"Agent/1.0"})";
const char* kProbe = R"({"op":"create","element":4,"attributes":[["type","application/x-orvane-sslvpn"],)"
                     R"(["_probevpn","1"]]})";

class BridgeTest : public ::testing::Test {
protected:
    BridgeTest() { setHostLogSink([this](const std::string& line) { hostLog += line + "\n"; }); }
    // Sends a message (or, given as a string, a frame's text) and carries what the plug-in asks for,
    // answering its page calls with nothing. A stale EINTR in errno must change nothing.
    void send(const json& message) {
        bridge.onFrame(message.is_string() ? message.get<std::string>() : message.dump());
        errno = EINTR;
        bridge.run();
        while (answered < sent.size())
            if (sent[answered++]["op"] == "call")
                send({{"op", "result"}, {"call", sent[answered - 1]["call"]}});
    }
    // An installing element whose fetch is answered; returns the fetch's request id.
    json install(const std::string& size) {
        setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);  // for the installer
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        send({{"op", "create"}, {"element", 4}, {"attributes", NpapiHost::Parameters{
            {"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
            {"tunvosize", size}, {"_installmethod", "sudo"}, {"_userpassword", "pw"},
            {"signature", signatureOf(package)}}}});
        json request = sent.back()["request"];
        send({{"op", "response"}, {"request", request}, {"status", 200}, {"mimeType", "application/x-tar"}});
        return request;
    }

    TempHome home;
    std::string hostLog, calls, frame, package = readFile(TEST_INSTALLER);  // calls: function[args] each
    uint32_t answered = 0, length = 0;  // page calls answered; a frame's length
    std::vector<json> sent;
    FrameReader replies;
    FrameWriter out{[this](const char* data, size_t size) {
        for (replies.feed(data, size); replies.next(frame, length) == FrameReader::Result::Frame;) {
            const json& m = sent.emplace_back(json::parse(frame));
            if (m["op"] == "call") calls += m["function"].get<std::string>() + m["args"].dump() + " ";
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
        {"hello (origin 5 ignored)", R"({"op":"hello","version":1,"userAgent":"x","origin":5})", 0, ""},
        {"a second hello", R"({"op":"hello","version":1,"userAgent":"x"})", 4, "\"hello\""},
        {"an element", R"({"op":"create","element":1,"attributes":[]})", 0, ""},
        {"attributes not pairs", R"({"op":"create","element":2,"attributes":[["a"]]})", 4, "\"create\""},
        {"an element id that is text", R"({"op":"destroy","element":"1"})", 4, "\"destroy\""},
        {"an element made twice", R"({"op":"create","element":1,"attributes":[]})", 6, ""},
        {"a result for no call", R"({"op":"result","call":77,"value":"x"})", 7, ""},
        {"data for no request", R"({"op":"data","request":77,"data":""})", 7, ""},
        {"a request id that is text", R"({"op":"data","request":"77","data":""})", 4, "\"data\""},
    };
    for (const auto& row : rows) {
        size_t before = sent.size(), logged = hostLog.size();
        send(row.frame);
        ASSERT_EQ(before + 1, sent.size()) << row.shows;
        EXPECT_EQ(row.code, sent.back().value("code", 0)) << row.shows;
        EXPECT_TRUE(!*row.refused || sent.back()["refused"].dump() == row.refused) << row.shows;
        EXPECT_EQ(row.code != 0, hostLog.find("refused (", logged) != std::string::npos) << row.shows;
    }
    Bridge("/nonexistent/libtunvo_plugin.so", out).onFrame(kHello);
    EXPECT_EQ(5, sent.back()["code"]) << "a plug-in that cannot load";
}

// A refused connection ends the request without a stream, and the page hears the session dropped; a reply
// reaches the page as the text of its call (a quote in it is text; %27 reads as a browser reads it),
// carried by the host (the plug-in would ask the service itself after a failed request).
TEST_F(BridgeTest, AServiceReplyReachesThePageAsTextAndARefusedConnectionDropsTheSession) {
    send(kHello);
    send(kProbe);
    EXPECT_NE(std::string::npos, hostLog.find("connect failed"));
    EXPECT_EQ(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("NewStream]"));
    send({{"op", "destroy"}, {"element", 4}});
    FakeService service;
    service.setReply([](const std::string&) { return std::string("it's <b>%27"); });
    send(kProbe);
    for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
    EXPECT_EQ("c_addcomm[\"ssldrop\"] c_addcomm[\"it's <b>'\"] ", calls);
    EXPECT_EQ(std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}, service.requests()) << "not its own";
}

// ready names the plug-in as it reports itself through its entry points; every message carries the
// protocol's version and the host's own.
TEST_F(BridgeTest, ReadyTellsWhatThePluginReportsAndEveryMessageTheVersions) {
    send(kHello);
    send(R"({"op":"destroy","element":9})");
    const json& ready = sent.at(0);
    EXPECT_EQ("ready", ready["op"]);
    EXPECT_EQ("Orvane Passway plugin", ready["name"]);
    EXPECT_EQ("Orvane Passway plugin, Ver. 7135.2016.429.1", ready["description"]);
    EXPECT_EQ("application/x-orvane-sslvpn:xvpn:Orvane Passway plugin", ready["mimeDescription"]);
    for (const json& message : sent) {
        EXPECT_EQ(1, message["version"]);
        EXPECT_EQ(PASSWAY_HOST_VERSION, message["hostVersion"]);
    }
}

// An element destroyed while its service request is open: the request ends with a network error before
// NPP_Destroy, as a browser ends it, so the plug-in asks the service itself once more; the page hears
// nothing of it (its element is gone).
TEST_F(BridgeTest, AnElementDestroyedWithARequestOpenLetsThePluginAskTheServiceItself) {
    FakeService service;
    send(kHello);
    send(kProbe);
    ASSERT_EQ(1u, bridge.watched().size());
    send({{"op", "destroy"}, {"element", 4}});
    EXPECT_EQ("destroyed", sent.back()["op"]);
    EXPECT_TRUE(bridge.watched().empty());
    // The host's request, then the plug-in's own (HTTP/1.1 is its).
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0", "GET /vpn.php?INFO HTTP/1.1"}), service.requests());
    EXPECT_EQ("", calls);
}

// The fetched package is streamed, verified and installed; after a body that breaks or a tab that closes, no
// partial package stays.
TEST_F(BridgeTest, ThePackageIsInstalledWholeAndNoPartOfABrokenOneStays) {
    send(kHello);
    json request = install(std::to_string(package.size()));
    send({{"op", "data"}, {"request", request}, {"data", opensslBase64(package.substr(0, 100))}});
    // The rest in the extension's own layout, which is read without the JSON library (a leading zero, which
    // JSON does not allow, shows it).
    send(R"({"op":"data","request":0)" + request.dump() + R"(,"data":")" +
         opensslBase64(package.substr(100)) + "\"}");
    send({{"op", "end"}, {"request", request}, {"ok", true}});
    std::string size = std::to_string(package.size()) + ".0]";
    EXPECT_EQ("onTunvoDownloadStart[" + size + " onTunvoDownloadProgress[0.0] onTunvoDownloadProgress[100.0]"
                  " onTunvoDownloadProgress[" + size + " onTunvoDownloadDone[] onTunvoInstalling[]"
                  " VPNInstallationOK[] ", calls);
    EXPECT_EQ("SUDO\npw\n", readFile(std::string(PASSWAY_TEST_ROOT) + "var/run/installer.log"));
    for (bool tabCloses : {false, true}) {
        send({{"op", "destroy"}, {"element", 4}});
        json request = install("12ab");  // a size no page call can carry: no start call, the download goes on
        send({{"op", "data"}, {"request", request}, {"data", opensslBase64(package.substr(0, 100))}});
        std::string log = readFile(home.inFolder("tunvo_plugin.log"));
        std::string file = log.substr(log.rfind("tmp file name=") + 14);
        file.resize(file.find('\n'));
        ASSERT_EQ(0, access(file.c_str(), F_OK));
        tabCloses ? bridge.shutdown() : send({{"op", "end"}, {"request", request}, {"ok", false}});
        EXPECT_NE(0, access(file.c_str(), F_OK)) << (tabCloses ? "tab closed" : "network failure");
        EXPECT_NE(std::string::npos, hostLog.find("removed the partial package file " + file));
    }
}

// passway-host ends when the tab closes its input.
TEST(HostProgram, EndsWithItsInput) { EXPECT_EQ(0, runCommand({PASSWAY_HOST}).exitCode); }

// Without PASSWAY_HOST_PLUGIN the host loads the user's own plug-in first, as browsers look for it.
TEST(HostProgram, LoadsTheUsersOwnPluginFirst) {
    TempHome home;
    std::string mine = home.path() + "/.mozilla/plugins/libtunvo_plugin.so";
    writeFile(mine, readFile(PASSWAY_TEST_PLUGIN));
    unsetenv("PASSWAY_HOST_PLUGIN");
    std::string hello = R"({"op":"hello","version":1,"userAgent":"x"})", frame;
    uint32_t length = static_cast<uint32_t>(hello.size());
    CommandResult run = runCommand({PASSWAY_HOST}, std::string(reinterpret_cast<char*>(&length), 4) + hello);
    FrameReader replies;
    replies.feed(run.out.data(), run.out.size());
    ASSERT_EQ(FrameReader::Result::Frame, replies.next(frame, length));
    EXPECT_EQ(mine, json::parse(frame).value("plugin", "")) << frame;
}

}  // namespace
