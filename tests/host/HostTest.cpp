// passway-host's parts, then the program itself: page calls read as a browser reads a javascript: URL but
// never run as script; native messaging frames; the bridge as the extension sees it, framed messages in and
// out with the test plug-in in between.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <sstream>
#include <sys/wait.h>

#include "Bridge.h"
#include "FakeService.h"
#include "HostLog.h"
#include "PageCall.h"
#include "ServiceGuard.h"
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
        {"an exponent with its sign", "javascript:f(25E-1)", "f(2.5)"},
        {"an exponent without digits", "javascript:f(1e+)", "refused"},
        {"an exponent then letters", "javascript:f(1e5x)", "refused"},
        {"a sign and a point without digits", "javascript:f(-.)", "refused"},
        {"a backslash that ends the text stays", R"(javascript:f('a\'))", R"(f("a\\"))"},
        {"hexadecimal in both cases", "javascript:f(0x0fF)", "f(255.0)"},
        {"underscores, dollars and digits in the name", "JavaScript:$_a1()", "$_a1()"},
        {"a quote inside stays text", "javascript:f('it's'); alert('x')", R"(f("it's'); alert('x"))"},
        {"escapes read as script reads them",
         R"(javascript:f('a\'b\\c\nd\x41\u00e9\u{1F600}\q\u0000\0\u{0}\u{10FFFF}'))",
         "f(\"a'b\\\\c\\nd" "A\xc3\xa9\xf0\x9f\x98\x80q\\u0000\\u0000\\u0000\xf4\x8f\xbf\xbf\")"},
        {"percent-decoded first", "javascript:f('a%20b%27c%zz%30%7e%7E%2f%00')", R"(f("a b'c%zz0~~/\u0000"))"},
        {"\\u without four digits or one to six in braces, or past U+10FFFF, is the letter u",
         R"(javascript:f('\u{00004A}\u_41}\u{110000}\u{zz}\u{000004A}'))", R"(f("Ju_41}u{110000}u{zz}u{000004A}"))"},
        {"double quotes, spaces and a trailing semicolon", "javascript: f(\"x\") ;", R"(f("x"))"},
        {"digits then letters", "javascript:onTunvoDownloadStart(12ab)", "refused"},
        {"a name that is code", "javascript:window.f()", "refused"},
        {"a name starting with a digit", "javascript:1f()", "refused"},
        {"another scheme", "javascripx:f()", "refused"},
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
    // Each large message's parts carry an id of their own, a number that JavaScript holds exactly.
    std::set<uint64_t> ids;
    FrameReader again;  // the first one stopped at the overlong frame
    FrameWriter sliced([&](const char* data, size_t size) {
        for (again.feed(data, size); again.next(frame, length) == FrameReader::Result::Frame;)
            ids.insert(json::parse(frame)["id"].get<uint64_t>());
        return true;
    });
    for (int i = 0; i < 3; ++i) sliced.send({{"op", "call"}, {"args", {std::string(kMaxFrameOut, 'x')}}});
    ASSERT_EQ(3u, ids.size());
    FrameReader steady;  // fed in pieces that end inside a frame, read as it is fed: what was read goes
    std::string stream;
    const uint32_t size = 1027;  // frames of 1,031 bytes fed 1,000 at a time: their ends meet every 1,031,000
    for (int i = 0; i < 3000; ++i)
        stream += std::string(reinterpret_cast<const char*>(&size), 4) + std::string(size, 'z');
    size_t most = 0;
    for (size_t at = 0; at < stream.size(); at += 1000) {
        steady.feed(stream.data() + at, std::min<size_t>(1000, stream.size() - at));
        while (steady.next(frame, length) == FrameReader::Result::Frame) {
        }
        most = std::max(most, steady.held());
    }
    EXPECT_LE(most, (1u << 20) + 2031);
    FrameWriter refused([](const char*, size_t) { return false; });
    EXPECT_FALSE(refused.send({{"op", "call"}, {"args", {std::string(kMaxFrameOut, 'x')}}})) << "a part not taken";
    EXPECT_LE(*ids.rbegin(), (1ull << 53) - 1);
    // A message of exactly the limit goes whole, in one frame.
    std::string sent;
    FrameWriter atLimit([&](const char* data, size_t size) { return !sent.append(data, size).empty(); });
    json exact = {{"op", "call"}, {"args", {""}}};
    atLimit.send(exact);
    exact["args"][0] = std::string(kMaxFrameOut - (sent.size() - 4), 'y');
    sent.clear();
    atLimit.send(exact);
    EXPECT_EQ(4 + kMaxFrameOut, sent.size());
}

// Frames as the extension sends them.
const char* kHello = R"({"op":"hello","version":1,"userAgent":"Agent/1.0"})";
const char* kProbe = R"({"op":"create","element":4,"attributes":[["type","application/x-orvane-sslvpn"],)"
                     R"(["_probevpn","1"]]})";

class BridgeTest : public ::testing::Test {
protected:
    explicit BridgeTest(protocol::Limits limits = protocol::Limits()) : bridge(PASSWAY_TEST_PLUGIN, out, limits) {
        setHostLogSink([this](const std::string& line) { hostLog += line + "\n"; });
    }
    // Sends a message (or, given as a string, a frame's text) and carries what the plug-in asks for,
    // answering its page calls with nothing (unless answerCalls is false). A stale EINTR in errno must
    // change nothing.
    void send(const json& message) {
        errno = EINTR;
        bridge.onFrame(message.is_string() ? message.get<std::string>() : message.dump());
        errno = EINTR;
        bridge.run();
        answer();
    }
    // Answers the page calls not yet answered.
    void answer() {
        while (answerCalls && answered < sent.size())
            if (sent[answered++]["op"] == "call")
                send({{"op", "result"}, {"call", sent[answered - 1]["call"]}, {"value", nullptr}});
    }
    // The error messages sent since the `from`th message, as "code field-value" each.
    std::vector<std::string> errorsSince(size_t from) const {
        std::vector<std::string> errors;
        for (size_t i = from; i < sent.size(); ++i)
            if (sent[i]["op"] == "error") {
                std::string field = protocol::errorText(sent[i]["code"].get<protocol::Error>()).field;
                errors.push_back(sent[i]["code"].dump() + " " + sent[i][field].dump());
            }
        return errors;
    }
    // Creates element 4, which installs the test package (announced as `size` bytes) from `hostRootUrl`.
    void createInstaller(const std::string& hostRootUrl, const std::string& size) {
        send({{"op", "create"}, {"element", 4}, {"attributes", NpapiHost::Parameters{
            {"_installvpn", "1"}, {"hostrooturl", hostRootUrl}, {"tunvourl", "/client/package"},
            {"tunvosize", size}, {"_installmethod", "sudo"}, {"_userpassword", "pw"},
            {"signature", signatureOf(package)}}}});
    }
    // An installing element whose fetch is answered; returns the fetch's request id.
    json install(const std::string& size) {
        setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);  // for the installer
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        createInstaller("http://portal.test", size);
        json request = sent.back()["request"];
        send({{"op", "response"}, {"request", request}, {"status", 200}, {"mimeType", "application/x-tar"}});
        return request;
    }

    TempHome home;
    std::string hostLog, calls, frame, package = readFile(TEST_INSTALLER);  // calls: function[args] each
    uint32_t answered = 0, length = 0;  // page calls answered; a frame's length
    bool answerCalls = true;
    std::vector<json> sent;
    FrameReader replies;
    FrameWriter out{[this](const char* data, size_t size) {
        for (replies.feed(data, size); replies.next(frame, length) == FrameReader::Result::Frame;) {
            const json& m = sent.emplace_back(json::parse(frame));
            if (m["op"] == "call") calls += m["function"].get<std::string>() + m["args"].dump() + " ";
        }
        return true;
    }};
    Bridge bridge;
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
        {"hello with an origin that is no text", R"({"op":"hello","version":1,"userAgent":"x","origin":5})", 4,
         "\"hello\""},
        {"hello", R"({"op":"hello","version":1,"userAgent":"x","origin":"https://portal.test"})", 0, ""},
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

// A refused connection ends the request without a stream, and the page hears the session dropped (the call's
// text value is streamed to the plug-in, as a browser does); a reply reaches the page as the text of its call
// (a quote in it is text; %27 reads as a browser reads it), carried by the host (the plug-in would ask the
// service itself after a failed request).
TEST_F(BridgeTest, AServiceReplyReachesThePageAsTextAndARefusedConnectionDropsTheSession) {
    answerCalls = false;
    send(kHello);
    send(kProbe);
    EXPECT_NE(std::string::npos, hostLog.find("connect failed"));
    EXPECT_EQ(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("NewStream]"));
    ASSERT_EQ("call", sent.back()["op"]);
    send({{"op", "result"}, {"call", sent.back()["call"]}, {"value", "fine"}});
    EXPECT_NE(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("mime-type=text/plain\n"));
    answered = static_cast<uint32_t>(sent.size()), answerCalls = true;
    send({{"op", "destroy"}, {"element", 4}});
    FakeService service;
    service.setReply([](const std::string&) { return std::string("it's <b>%27"); });
    send(kProbe);
    for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
    EXPECT_EQ("c_addcomm[\"ssldrop\"] c_addcomm[\"it's <b>'\"] ", calls);
    EXPECT_EQ(std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}, service.requests()) << "not its own";
    service.resetNext();  // a connection reset: a network error, and the plug-in asks the service itself
    send({{"op", "destroy"}, {"element", 4}});
    send(kProbe);
    for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
    EXPECT_NE(std::string::npos, hostLog.find("read failed: Connection reset by peer")) << hostLog;
    EXPECT_EQ("GET /vpn.php?INFO HTTP/1.1", service.requests().back());
    service.setReply([](const std::string& line) {  // a status other than 2xx: a network error too
        return (line.find("HTTP/1.1") != std::string::npos ? "HTTP/1.0 200 OK" : "HTTP/1.0 503 Busy") +
               std::string("\r\n\r\nbusy");
    }, true);
    send({{"op", "destroy"}, {"element", 4}});
    calls.clear();
    send(kProbe);
    for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
    EXPECT_NE(std::string::npos, hostLog.find("vpn.php: answered with status 503\n")) << hostLog;
    EXPECT_EQ("GET /vpn.php?INFO HTTP/1.1", service.requests().back());
}

// A reply that comes in pieces with a pause between them (a service that holds the rest until it has news),
// in its headers or in its body, is taken as it arrives, and reaches the page whole once the service ends it:
// nothing lost or repeated.
TEST_F(BridgeTest, AReplyHeldInTheMiddleReachesThePageWhole) {
    FakeService service;
    service.setReply([](const std::string&) { return std::string("news: held, then told"); });
    send(kHello);
    for (const char* marker : {"Content-", "held,"}) {
        service.holdAfter(marker);
        calls.clear();
        send(kProbe);
        ASSERT_EQ(1u, bridge.watched().size());
        int fd = bridge.watched()[0];
        auto take = [&] {
            pollfd readable = {fd, POLLIN, 0};
            ASSERT_EQ(1, poll(&readable, 1, 10000));
            bridge.onReadable(fd);
            bridge.run();
        };
        take();  // the first piece, then nothing more for now
        EXPECT_EQ(1u, bridge.watched().size()) << marker;
        EXPECT_EQ("", calls) << marker;
        service.release();
        while (!bridge.watched().empty()) take();
        EXPECT_EQ("c_addcomm[\"news: held, then told\"] ", calls) << marker;
        send({{"op", "destroy"}, {"element", 4}});
    }
}

// The plug-in that starts the service asks it "?CONNECT": the extension hears that the element's session
// runs, and the guard which process the service is; once the element's NPP_Destroy has stopped the service,
// the guard hears that too.
TEST_F(BridgeTest, TheExtensionAndTheGuardLearnOfTheSessionAnElementStarted) {
    setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);
    setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
    ASSERT_EQ(0, runCommand({"/bin/sh", TEST_INSTALLER, "SUDO"}, "pw").exitCode);
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_NONBLOCK));
    ServiceGuard guard;
    guard.attach(ends[1]);
    bridge.setGuard(&guard, PASSWAY_TEST_ROOT);
    auto told = [&] {
        char buffer[256];
        ssize_t n = read(ends[0], buffer, sizeof buffer);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
    };
    send(kHello);
    send({{"op", "create"}, {"element", 5}, {"attributes", NpapiHost::Parameters{{"last_param", "1"}, {"user", "t"}}}});
    ServiceProcess service;
    ASSERT_TRUE(runningService(PASSWAY_TEST_ROOT, service));
    EXPECT_EQ((json{{"op", "session"}, {"element", 5}, {"version", 1}, {"hostVersion", PASSWAY_HOST_VERSION}}),
              sent.at(2));
    EXPECT_EQ("owned " + std::to_string(service.pid) + " " + std::to_string(service.started) + "\n", told());
    send({{"op", "destroy"}, {"element", 5}});
    EXPECT_EQ("released\n", told());
    close(ends[0]);
    // The stopped service removes its pid file once its port is free: the next test finds no service.
    for (int wait = 0; wait < 500 && runningService(PASSWAY_TEST_ROOT, service); ++wait) usleep(10000);
}

// An element's size for NPP_SetWindow: the first parameter of that name in any case, a number clamped to
// what a window can be.
TEST(NpapiHost, AnElementsSizeIsItsFirstParameterOfThatName) {
    const NpapiHost::Parameters parameters = {{"type", "7"}, {"Width", "640px"}, {"width", "3"}, {"height", "-4"},
                                              {"HEIGHT", "9"}, {"border", "99999"}};
    EXPECT_EQ(640u, NpapiHost::size(parameters, "width"));
    EXPECT_EQ(0u, NpapiHost::size(parameters, "height"));
    EXPECT_EQ(65535u, NpapiHost::size(parameters, "border"));
    EXPECT_EQ(0u, NpapiHost::size(parameters, "hspace"));
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
    // A temporary file of someone else's, open all along (on a descriptor listed after the package's), stays.
    char other[] = P_tmpdir "/passway-other-XXXXXX";
    int opened = mkstemp(other);
    dup2(opened, 999), close(opened);
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
        EXPECT_EQ(0, access(other, F_OK)) << "another's temporary file";
    }
    close(999), unlink(other);
}

// A URL the bridge does not carry (not javascript:, the service's or http(s)) is refused and logged, and the
// extension is asked for nothing.
TEST_F(BridgeTest, AURLItDoesNotCarryIsRefused) {
    send(kHello);
    createInstaller("ftp://portal.test", "9");
    EXPECT_NE(std::string::npos, hostLog.find("refused request for ftp://portal.test/client/package\n")) << hostLog;
    for (const json& message : sent) EXPECT_NE("fetch", message["op"]);
}

// Data for a fetch whose response has not come is refused: no stream is open to take it.
TEST_F(BridgeTest, DataBeforeItsResponseIsRefused) {
    send(kHello);
    createInstaller("http://portal.test", "9");
    size_t before = sent.size();
    send({{"op", "data"}, {"request", sent.back()["request"]}, {"data", "QUJD"}});
    EXPECT_EQ(std::vector<std::string>{"4 \"data\""}, errorsSince(before));
}

// Every message has exactly its operation's fields: one missing or of another type gets 4 (with the op),
// one the operation does not have there gets 9 (with its name). Messages that pass reach the next check:
// 7, for calls and requests that are not open.
TEST_F(BridgeTest, EveryMessageHasExactlyItsOperationsFields) {
    send(R"({"op":"hello","version":1,"userAgent":"x"})");  // the probe's: no origin
    ASSERT_EQ("ready", sent.back()["op"]);
    const struct { const char* shows; std::string frame, error; } rows[] = {
        {"create with a field more", R"({"op":"create","element":1,"attributes":[],"type":"x"})", R"(9 "type")"},
        {"create without attributes", R"({"op":"create","element":1})", R"(4 "create")"},
        {"an element that is a fraction", R"({"op":"destroy","element":1.5})", R"(4 "destroy")"},
        {"an attribute that is a number", R"({"op":"create","element":1,"attributes":[["a",1]]})", R"(4 "create")"},
        {"an attribute's name a number", R"({"op":"create","element":1,"attributes":[[1,"b"]]})", R"(4 "create")"},
        {"an attribute of three", R"({"op":"create","element":1,"attributes":[["a","b","c"]]})", R"(4 "create")"},
        {"a result with a value", R"({"op":"result","call":77,"value":"x"})", "7 77"},
        {"a result with nothing returned", R"({"op":"result","call":77,"value":null})", "7 77"},
        {"a result with an error", R"({"op":"result","call":77,"error":"x"})", "7 77"},
        {"a result with both", R"({"op":"result","call":77,"value":"x","error":"y"})", R"(9 "error")"},
        {"a result with neither", R"({"op":"result","call":77})", R"(4 "result")"},
        {"a result whose value is a number", R"({"op":"result","call":77,"value":5})", R"(4 "result")"},
        {"a result whose error is no text", R"({"op":"result","call":77,"error":{"a":1}})", R"(4 "result")"},
        {"a response", R"({"op":"response","request":77,"status":200,"mimeType":"text/plain"})", "7 77"},
        {"a response with a status that is text", R"({"op":"response","request":77,"status":"200","mimeType":""})",
         R"(4 "response")"},
        {"data in another order (the long way)", R"({"data":"","op":"data","request":77})", "7 77"},
        {"data in the fast shape with a field more", R"({"op":"data","request":77,"data":"QQ==","x":1})", R"(9 "x")"},
        {"a failed end with its error", R"({"op":"end","request":77,"ok":false,"error":"x"})", "7 77"},
        {"a whole end with an error", R"({"op":"end","request":77,"ok":true,"error":"x"})", R"(9 "error")"},
        {"an end whose ok is a number", R"({"op":"end","request":77,"ok":1})", R"(4 "end")"},
        {"a field name of 100 bytes, cut to 64", R"({"op":"destroy","element":1,")" + std::string(100, 'n') + R"(":1})",
         R"(9 ")" + std::string(64, 'n') + R"(")"},
        {"an op of 100 bytes, cut to 64", R"({"op":")" + std::string(100, 'o') + R"("})",
         R"(3 ")" + std::string(64, 'o') + R"(")"},
        {"an op that is an array", R"({"op":["create"]})", "4 null"},
    };
    for (const auto& row : rows) {
        size_t before = sent.size(), logged = hostLog.size();
        send(row.frame);
        std::vector<std::string> errors = errorsSince(before);
        EXPECT_EQ(std::vector<std::string>{row.error}, errors) << row.shows;
        EXPECT_NE(std::string::npos, hostLog.find("refused (", logged)) << row.shows;
    }
}

// Arrays and objects nested deeper than create's attributes are refused (13) before anything reads them:
// 300,000 levels in the op or in a result's error once crashed the host's log. Brackets inside texts do not
// count, an escaped quote does not end a text, and a message as deep as the limit passes. So is a message of
// more values than any message holds (15), which the parser would make into a value each.
TEST_F(BridgeTest, NestingDeeperThanAnyMessageIsRefusedUnread) {
    send(kHello);
    std::string deep = std::string(300000, '[') + std::string(300000, ']');
    auto create = [](int element, size_t attributes) {  // each pair counts 3
        std::string pairs;
        for (size_t i = 0; i < attributes; ++i) pairs += std::string(i ? "," : "") + R"(["n",""])";
        return R"({"op":"create","element":)" + std::to_string(element) + R"(,"attributes":[)" + pairs + "]}";
    };
    const struct { std::string shows, frame; const char* error; } rows[] = {
        {"300,000 levels in the op", R"({"op":)" + deep + "}", "13 3"},
        {"300,000 levels in a result's error", R"({"op":"result","call":1,"error":)" + deep + "}", "13 3"},
        {"an attribute one level deeper", R"({"op":"create","element":1,"attributes":[[["a","b"]]]})", "13 3"},
        {"an object one level deeper", R"({"op":"end","request":1,"ok":false,"x":{"y":[{}]}})", "13 3"},
        {"not JSON but deep", std::string(4, '{'), "13 3"},
        {"brackets in texts", R"({"op":"create","element":1,"attributes":[["a\"[[{{","[[[[{{{{"]]})", nullptr},
        {"unmatched closing ones", R"(]]]]{"op":"x"})", "1 14"},
        {"more values than any message holds", create(2, protocol::kMaxValues / 3 + 1), "15 16384"},
        {"a create of 5,000 attributes", create(3, 5000), nullptr},
    };
    for (const auto& row : rows) {
        size_t before = sent.size();
        send(row.frame);
        std::vector<std::string> errors = errorsSince(before);
        EXPECT_EQ(row.error ? std::vector<std::string>{row.error} : std::vector<std::string>{}, errors) << row.shows;
        EXPECT_EQ(row.error ? "error" : "created", sent.back()["op"].get<std::string>()) << row.shows;
    }
    EXPECT_NE(std::string::npos, hostLog.find("refused (13 nested too deep): limit=3 (600033 bytes)"));
}

// A tab's host keeps at most 64 elements alive (10) and an element's attributes at most 256 KiB of names and
// values (11); an element destroyed makes room again, and one at the limits is made.
TEST_F(BridgeTest, ElementsAndTheirAttributesAreLimited) {
    send(kHello);
    protocol::Limits limits;
    for (size_t element = 1; element <= limits.elements; ++element)
        send({{"op", "create"}, {"element", element}, {"attributes", json::array()}});
    size_t before = sent.size();
    send({{"op", "create"}, {"element", 100}, {"attributes", json::array()}});
    EXPECT_EQ(std::vector<std::string>{"10 64"}, errorsSince(before));
    EXPECT_NE(std::string::npos, hostLog.find("refused (10 too many elements): limit=64 (element 100)"));
    send({{"op", "destroy"}, {"element", 1}});
    send({{"op", "destroy"}, {"element", 2}});
    std::string name = "type", value(limits.attributeBytes - name.size(), 'v');
    before = sent.size();
    send({{"op", "create"}, {"element", 101}, {"attributes", NpapiHost::Parameters{{name, value}}}});
    EXPECT_EQ("created", sent.back()["op"]) << "at the limit";
    send({{"op", "create"}, {"element", 102}, {"attributes", NpapiHost::Parameters{{name, value + "v"}}}});
    EXPECT_EQ(std::vector<std::string>{"11 262144"}, errorsSince(before));
    EXPECT_NE(std::string::npos, hostLog.find("limit=262144 (element 102: 262145 bytes)"));
}

// A bridge that lets the plug-in have five requests in flight.
class FewRequestsTest : public BridgeTest {
protected:
    FewRequestsTest() : BridgeTest(fewRequests()) {}
    static protocol::Limits fewRequests() {
        protocol::Limits limits;
        limits.requests = 5;
        return limits;
    }
};

// Past the requests in flight (page calls, fetches, service requests, queued), NPN_GetURLNotify refuses the
// plug-in's request (NPERR_OUT_OF_MEMORY_ERROR) and the extension hears 12; once answers come in, requests
// are taken again. A download makes a progress call for each piece of 64,000 bytes it takes.
TEST_F(FewRequestsTest, RequestsInFlightAreLimited) {
    answerCalls = false;
    send(kHello);
    json request = install(std::to_string(package.size()));  // its start call and its fetch, then a progress call
    size_t before = sent.size();
    send({{"op", "data"}, {"request", request}, {"data", opensslBase64(std::string(3 * 64000, 'x'))}});
    EXPECT_EQ(std::vector<std::string>{"12 5"}, errorsSince(before));
    EXPECT_NE(std::string::npos, hostLog.find("refused (12 too many requests): limit=5 "
                                              "(request for javascript:onTunvoDownloadProgress(...))"));
    EXPECT_EQ("onTunvoDownloadStart[" + std::to_string(package.size()) + ".0] onTunvoDownloadProgress[0.0]"
              " onTunvoDownloadProgress[64000.0] onTunvoDownloadProgress[128000.0] ", calls);
    answerCalls = true;
    answer();
    send({{"op", "data"}, {"request", request}, {"data", opensslBase64(std::string(64000, 'x'))}});
    EXPECT_NE(std::string::npos, calls.find("onTunvoDownloadProgress[256000.0]")) << calls;
    EXPECT_EQ(std::vector<std::string>{"12 5"}, errorsSince(before)) << "no more";
    send({{"op", "destroy"}, {"element", 4}});
}

// A destroyed element's names and values are freed and only a small record of it is kept, for the last
// NpapiHost::kKeptRecords: a thousand and more elements made and destroyed, some of which the plug-in
// refused, leave the bookkeeping of one element alive and a bounded number of empty records.
TEST_F(BridgeTest, DestroyedElementsKeepNoParametersAndFewRecords) {
    send(kHello);
    std::string big(10000, 'v');
    send({{"op", "create"}, {"element", 0}, {"attributes", NpapiHost::Parameters{{"kept", big}}}});
    size_t pairs = NpapiHost::kKeptRecords + 100, refused = 0;
    for (size_t element = 1; element <= pairs; ++element) {
        NpapiHost::Parameters attributes = {{"big", big}};
        if (element % 10 == 0)  // an installing element whose package URL the bridge refuses: NPP_New fails
            attributes = {{"_installvpn", "1"}, {"hostrooturl", "ftp://portal.test"}, {"tunvourl", "/p"},
                          {"tunvosize", "1"}};
        send({{"op", "create"}, {"element", element}, {"attributes", attributes}});
        refused += sent.back()["result"] != NPERR_NO_ERROR;
        send({{"op", "destroy"}, {"element", element}});
    }
    EXPECT_EQ(pairs / 10, refused);
    NpapiHost::Usage usage = bridge.usage();
    EXPECT_EQ(4u + big.size(), usage.parameterBytes);
    EXPECT_EQ(1 + NpapiHost::kKeptRecords, usage.records);
}

// A service reply whose status line and headers pass 64 KiB ends the request with a network error (the
// plug-in then asks the service itself), with a log line and error 14, as soon as 64 KiB came without their
// end; headers of exactly 64 KiB pass.
TEST_F(BridgeTest, AServiceReplysHeadersAreLimited) {
    FakeService service;
    size_t headerBytes = 0;
    bool ended = true;  // false: the limit's worth of header bytes, and no end of the headers in them
    service.setReply([&](const std::string& line) {
        if (line.find("HTTP/1.1") != std::string::npos) return std::string("HTTP/1.0 200 OK\r\n\r\nasked directly");
        std::string head = "HTTP/1.0 200 OK\r\nX-Padding: ", end = ended ? "\r\n\r\nthe reply" : "";
        return head + std::string(headerBytes - head.size() - (ended ? 4 : 0), 'p') + end;
    }, true);
    send(kHello);
    const std::pair<size_t, bool> rows[] = {
        {kMaxServiceHeaderBytes, true}, {kMaxServiceHeaderBytes + 1, true}, {kMaxServiceHeaderBytes, false}};
    for (const auto& [bytes, withEnd] : rows) {
        headerBytes = bytes, ended = withEnd;
        calls.clear();
        size_t before = sent.size();
        send(kProbe);
        for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
        bool tooLong = bytes > kMaxServiceHeaderBytes || !withEnd;
        EXPECT_EQ(tooLong ? "c_addcomm[\"asked directly\"] " : "c_addcomm[\"the reply\"] ", calls) << bytes;
        EXPECT_EQ(tooLong ? std::vector<std::string>{"14 65536"} : std::vector<std::string>{}, errorsSince(before));
        send({{"op", "destroy"}, {"element", 4}});
    }
    EXPECT_NE(std::string::npos, hostLog.find("service request http://127.0.0.1:44444/vpn.php: headers longer than "
                                              "65536 bytes\n"));
}

// The log shows URLs without their query or fragment, and of a page call only the function's name.
TEST(HostLog, URLsShowNoQueryNoFragmentAndNoPageCallArgument) {
    const struct { const char *url, *shown; } rows[] = {
        {"http://127.0.0.1:44444/vpn.php?INFO", "http://127.0.0.1:44444/vpn.php"},
        {"https://portal.test/client/package?token=s3cret#part", "https://portal.test/client/package"},
        {"https://portal.test/p#a?b", "https://portal.test/p"},
        {"https://portal.test/", "https://portal.test/"},
        {"javascript:c_addcomm('s3cret reply')", "javascript:c_addcomm(...)"},
        {"JavaScript:%20onTunvoDownloadProgress(100)", "javascript:onTunvoDownloadProgress(...)"},
        {"javascript:(s3cret)", "javascript:(...)"}, {"javascript:", "javascript:(...)"},
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(row.shown, urlForLog(row.url)) << row.url;
}

// What the bridge logs of the plug-in's requests: a fetch that failed and a page call that threw show
// neither the package URL's query nor the service's reply the page call carried.
TEST_F(BridgeTest, TheLogShowsNoQueryAndNoReplyOfTheService) {
    FakeService service;
    service.setReply([](const std::string&) { return std::string("s3cret reply"); });
    answerCalls = false;
    send(kHello);
    send(kProbe);
    for (int fd = bridge.watched().at(0); !bridge.watched().empty(); bridge.run()) bridge.onReadable(fd);
    ASSERT_EQ("call", sent.back()["op"]);
    send({{"op", "result"}, {"call", sent.back()["call"]}, {"error", "c_addcomm is not a function of the page"}});
    send({{"op", "create"}, {"element", 5}, {"attributes", NpapiHost::Parameters{
        {"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package?token=s3cret#x"},
        {"tunvosize", "1"}}}});
    json request = sent.back()["request"];
    send({{"op", "response"}, {"request", request}, {"status", 404}, {"mimeType", "text/html"}});
    EXPECT_NE(std::string::npos, hostLog.find("page call javascript:c_addcomm(...) failed: c_addcomm is not"));
    EXPECT_NE(std::string::npos, hostLog.find("fetch http://portal.test/client/package: status 404\n"));
    EXPECT_EQ(std::string::npos, hostLog.find("s3cret")) << hostLog;
}

// docs/bridge.md's table of errors is the code's, row by row: number, message text and the field it carries;
// its table of limits gives each limit's value and error as the code has them.
TEST(Protocol, TheGuidesTablesOfErrorsAndLimitsAreTheCodes) {
    std::string guide = readFile(BRIDGE_GUIDE);
    auto section = [&](const std::string& heading) {
        size_t start = guide.find("\n" + heading + "\n");
        size_t end = start == std::string::npos ? start : guide.find("\n#", start + 1);
        return start == std::string::npos ? std::string() : guide.substr(start, end - start);
    };
    // The table rows of a section, each cut into its cells.
    auto rows = [](const std::string& text) {
        std::vector<std::vector<std::string>> rows;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("| ", 0) != 0 || line.find("---") != std::string::npos) continue;
            std::vector<std::string> cells;
            for (size_t at = 1, bar; (bar = line.find(" |", at)) != std::string::npos; at = bar + 2)
                cells.push_back(line.substr(at + 1, bar - at - 1));
            rows.push_back(cells);
        }
        return rows;
    };
    auto quoted = [](const std::string& cell) {  // the first `...` of a cell
        size_t open = cell.find('`');
        return open == std::string::npos ? std::string() : cell.substr(open + 1, cell.find('`', open + 1) - open - 1);
    };
    std::map<int, std::string> documented, coded;
    for (const auto& cells : rows(section("### Errors")))
        if (cells.size() >= 3 && isdigit(static_cast<unsigned char>(cells[0][0])))
            documented[std::stoi(cells[0])] = quoted(cells[1]) + " / " + quoted(cells[2]);
    for (const protocol::ErrorText& e : protocol::errorTexts())
        coded[e.code] = std::string(e.message) + " / " + e.field;
    EXPECT_EQ(coded, documented);
    EXPECT_EQ(protocol::kBadMessage, protocol::errorText(static_cast<protocol::Error>(0)).code) << "unknown";

    protocol::Limits limits;
    const std::map<int, size_t> values = {
        {protocol::kTooManyElements, limits.elements}, {protocol::kAttributesTooLarge, limits.attributeBytes},
        {protocol::kTooManyRequests, limits.requests}, {protocol::kTooDeep, protocol::kMaxDepth},
        {protocol::kTooManyValues, protocol::kMaxValues},
        {protocol::kServiceHeadersTooLong, kMaxServiceHeaderBytes}};
    std::map<int, size_t> listed;
    for (const auto& cells : rows(section("### Limits")))
        if (cells.size() >= 3 && isdigit(static_cast<unsigned char>(cells[2][0])))
            listed[std::stoi(cells[2])] = std::stoul(quoted(cells[1]));
    EXPECT_EQ(values, listed);
}

// passway-host ends when the tab closes its input.
TEST(HostProgram, EndsWithItsInput) { EXPECT_EQ(0, runCommand({PASSWAY_HOST}).exitCode); }

// passway-host as a browser runs it, with the test plug-in, in a fresh HOME: frames to its input, frames from
// its output. Told the plug-in to load, or (`asTheUsersOwn`) finding it where the user's own plug-ins are.
class HostProcess {
public:
    explicit HostProcess(bool asTheUsersOwn = false) {
        if (asTheUsersOwn) {
            writeFile(home.path() + kUsersOwn, readFile(PASSWAY_TEST_PLUGIN));
            unsetenv("PASSWAY_HOST_PLUGIN");
        } else {
            setenv("PASSWAY_HOST_PLUGIN", PASSWAY_TEST_PLUGIN, 1);
        }
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) return;
        pid = fork();
        if (pid == 0) {
            dup2(in[0], 0), dup2(out[1], 1), close(in[1]), close(out[0]);
            execl(PASSWAY_HOST, PASSWAY_HOST, static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]), close(out[1]);
        input = in[1], output = out[0];
    }
    ~HostProcess() {
        closeInput();
        close(output);
        if (pid > 0) waitpid(pid, nullptr, 0);
    }
    // Writes the frame `piece` bytes at a time (all at once when 0), with a pause after each piece.
    void send(const std::string& text, size_t piece = 0) {
        uint32_t size = static_cast<uint32_t>(text.size());
        std::string bytes = std::string(reinterpret_cast<char*>(&size), 4) + text;
        for (size_t at = 0; at < bytes.size(); usleep(piece * 2000)) {
            size_t n = piece != 0 ? std::min(piece, bytes.size() - at) : bytes.size();
            EXPECT_EQ(static_cast<ssize_t>(n), write(input, &bytes[at], n));
            at += n;
        }
    }
    // The next message's op ("(no reply)" once the host ended or said nothing for five seconds); the
    // message in `last`.
    std::string reply() {
        char buffer[4096];
        uint32_t length = 0;
        for (pollfd readable = {output, POLLIN, 0}; replies.next(frame, length) != FrameReader::Result::Frame;) {
            ssize_t n = poll(&readable, 1, 5000) > 0 ? read(output, buffer, sizeof buffer) : 0;
            if (n <= 0) return "(no reply)";
            replies.feed(buffer, static_cast<size_t>(n));
        }
        last = json::parse(frame);
        return last["op"].get<std::string>();
    }
    void closeInput() {
        if (input >= 0) close(input);
        input = -1;
    }
    // Whether the host ends within five seconds; one that does not is killed.
    bool ends() {
        for (int tries = 0; tries < 50; ++tries, usleep(100000))
            if (waitpid(pid, nullptr, WNOHANG) == pid) return pid = -1, true;
        kill(pid, SIGKILL);
        return false;
    }

    static constexpr const char* kUsersOwn = "/.mozilla/plugins/libtunvo_plugin.so";
    TempHome home;
    pid_t pid = -1;
    int input = -1, output = -1;
    json last;

private:
    FrameReader replies;
    std::string frame;
};

// A signal that interrupts the host's wait for input (SIGPIPE has a handler) loses none of what comes next,
// and the end of its input still ends it.
TEST(HostProgram, ASignalWhileItWaitsLosesNoInput) {
    HostProcess host;
    host.send(kHello, 1);  // a frame that comes a byte at a time is whole all the same
    EXPECT_EQ("ready", host.reply());
    for (const char* next : {R"({"op":"destroy","element":9})", ""}) {
        usleep(100000);  // waiting for input again
        kill(host.pid, SIGPIPE);
        usleep(100000);
        if (*next == '\0') break;
        host.send(next);
        EXPECT_EQ("error", host.reply());
    }
    host.closeInput();
    EXPECT_EQ("(no reply)", host.reply());
    EXPECT_TRUE(host.ends());
}

// A service that holds one element's reply holds up no other element's: the second reply reaches its page
// while the first is still open.
TEST(HostProgram, AHeldReplyHoldsUpNoOtherReply) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address = {};
    address.sin_family = AF_INET, address.sin_port = htons(44444), address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    listen(listener, 4);
    HostProcess host;
    host.send(kHello);
    host.send(kProbe);
    host.send(std::string(kProbe).replace(std::string(kProbe).find("4"), 1, "5"));
    int held = accept(listener, nullptr, nullptr), answered = accept(listener, nullptr, nullptr);
    char request[4096];
    EXPECT_GT(read(answered, request, sizeof request), 0);  // read before the answer: no reset on closing
    const std::string reply = "HTTP/1.0 200 OK\r\n\r\nnews";
    EXPECT_EQ(static_cast<ssize_t>(reply.size()), write(answered, reply.data(), reply.size()));
    close(answered);
    std::string op;
    while ((op = host.reply()) != "call" && op != "(no reply)") {
    }
    EXPECT_EQ("call", op) << "the second reply reached no page while the first was held";
    EXPECT_EQ((json{5, "c_addcomm", {"news"}}), (json{host.last["element"], host.last["function"], host.last["args"]}));
    close(held);
    close(listener);
}

// Without PASSWAY_HOST_PLUGIN the host loads the user's own plug-in first, as browsers look for it.
TEST(HostProgram, LoadsTheUsersOwnPluginFirst) {
    HostProcess host(true);
    host.send(kHello);
    ASSERT_EQ("ready", host.reply());
    EXPECT_EQ(host.home.path() + HostProcess::kUsersOwn, host.last.value("plugin", ""));
}

}  // namespace
