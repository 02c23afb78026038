// passway-host's bridge as the extension sees it: messages in, messages out, the test plug-in in between.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "Bridge.h"
#include "FakeService.h"
#include "HostLog.h"
#include "TempHome.h"
#include "TestSigning.h"

using nlohmann::json;

namespace {

const std::string kPackageUrl = "http://portal.test/client/package";

// An element's attributes as the extension sends them: [[name, value], ...] in document order.
json attributes(const std::vector<std::pair<std::string, std::string>>& pairs) {
    json list = json::array();
    for (const auto& [name, value] : pairs) list.push_back(json::array({name, value}));
    return list;
}

class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        setHostLogSink([this](const std::string& line) { hostLines += line; });
    }
    void TearDown() override { setHostLogSink(nullptr); }

    // Sends one message (or raw frame text) and carries what the plug-in asks for.
    void send(const json& message) { sendText(message.dump()); }
    void sendText(const std::string& text) {
        bridge.onFrame(text);
        bridge.run();
    }
    void hello() {
        send({{"op", "hello"}, {"version", 1}, {"userAgent", "Agent/1.0"}, {"origin", "http://portal.test"}});
    }
    // Serves the service sockets until `done` holds or nothing is left to wait for.
    template <typename Done>
    void serve(Done done) {
        for (int round = 0; round < 500 && !done(); ++round) {
            std::vector<int> fds = bridge.watched();
            if (fds.empty()) return;
            std::vector<pollfd> polled;
            for (int fd : fds) polled.push_back({fd, POLLIN, 0});
            poll(polled.data(), polled.size(), 20);
            for (const pollfd& p : polled)
                if (p.revents != 0) bridge.onReadable(p.fd);
            bridge.run();
        }
    }
    // The messages with this op, in order.
    std::vector<json> sentOp(const std::string& op) const {
        std::vector<json> found;
        for (const json& m : sent)
            if (m["op"] == op) found.push_back(m);
        return found;
    }
    std::vector<std::string> calledFunctions() const {
        std::vector<std::string> names;
        for (const json& m : sentOp("call")) names.push_back(m["function"]);
        return names;
    }
    // Answers every open page call: c_addcomm with `answer`, the others with nothing.
    void answerCalls(const std::string& answer = "") {
        for (size_t i = answered; i < sent.size(); ++i, answered = i)
            if (sent[i]["op"] == "call")
                send({{"op", "result"}, {"call", sent[i]["call"]},
                      {"value", sent[i]["function"] == "c_addcomm" ? json(answer) : json()}});
    }
    std::string pluginLog() const { return readFile(home.inFolder("tunvo_plugin.log")); }

    TempHome home;
    std::vector<json> sent;
    std::string hostLines;
    size_t answered = 0;
    FrameWriter out{[this](const char* data, size_t size) {
        frameBytes.append(data, size);
        uint32_t length;
        while (frameBytes.size() >= sizeof length) {
            memcpy(&length, frameBytes.data(), sizeof length);
            if (frameBytes.size() < sizeof length + length) break;
            sent.push_back(json::parse(frameBytes.substr(sizeof length, length)));
            frameBytes.erase(0, sizeof length + length);
        }
        return true;
    }};
    std::string frameBytes;
    Bridge bridge{PASSWAY_TEST_PLUGIN, out};
};

struct BadInput {
    const char* shows;
    std::string frame;
    int code;
};

TEST_F(BridgeTest, BadInputGetsItsNumberedErrorAndALogLine) {
    const BadInput before[] = {
        {"not JSON", "{\"op\":", Bridge::kBadFrame},
        {"not an object", "[1,2]", Bridge::kBadFrame},
        {"no op", "{\"element\":1}", Bridge::kBadMessage},
        {"an unknown op", "{\"op\":\"fly\"}", Bridge::kUnknownOp},
        {"a message before hello", "{\"op\":\"create\",\"element\":1,\"attributes\":[]}", Bridge::kNotReady},
        {"another version", "{\"op\":\"hello\",\"version\":2,\"userAgent\":\"x\"}", Bridge::kUnsupportedVersion},
        {"hello without its agent", "{\"op\":\"hello\",\"version\":1}", Bridge::kBadMessage},
    };
    const BadInput after[] = {
        {"a second hello", "{\"op\":\"hello\",\"version\":1,\"userAgent\":\"x\"}", Bridge::kBadMessage},
        {"attributes that are not pairs", "{\"op\":\"create\",\"element\":2,\"attributes\":[[\"a\"]]}",
         Bridge::kBadMessage},
        {"an element id that is text", "{\"op\":\"destroy\",\"element\":\"1\"}", Bridge::kBadMessage},
        {"an element made twice", "{\"op\":\"create\",\"element\":1,\"attributes\":[]}", Bridge::kUnknownElement},
        {"an unknown element", "{\"op\":\"destroy\",\"element\":9}", Bridge::kUnknownElement},
        {"a result for no call", "{\"op\":\"result\",\"call\":77,\"value\":\"x\"}", Bridge::kUnknownRequest},
        {"data for no request", "{\"op\":\"data\",\"request\":77,\"data\":\"\"}", Bridge::kUnknownRequest},
        {"a part from the extension", "{\"op\":\"part\",\"id\":1,\"data\":\"\"}", Bridge::kUnknownOp},
    };
    for (const BadInput& row : before) {
        sendText(row.frame);
        ASSERT_FALSE(sent.empty()) << row.shows;
        EXPECT_EQ("error", sent.back()["op"]) << row.shows;
        EXPECT_EQ(row.code, sent.back()["code"]) << row.shows;
    }
    EXPECT_EQ("hello", sent.back()["refused"]) << "the refused message's op comes back";
    sendText("{\"op\":\"hello\",\"version\":1,\"userAgent\":\"x\",\"origin\":5}");  // an origin that is no text
    ASSERT_EQ("ready", sent.back()["op"]);
    EXPECT_EQ("Orvane Passway plugin", sent.back()["name"]);
    send({{"op", "create"}, {"element", 1}, {"attributes", json::array()}});
    EXPECT_EQ(json({{"op", "created"}, {"element", 1}, {"result", 0}, {"version", 1}}), sent.back());
    for (const BadInput& row : after) {
        sendText(row.frame);
        EXPECT_EQ("error", sent.back()["op"]) << row.shows;
        EXPECT_EQ(row.code, sent.back()["code"]) << row.shows;
    }
    size_t lines = 0;
    for (size_t at = hostLines.find("refused ("); at != std::string::npos; at = hostLines.find("refused (", at + 1))
        ++lines;
    EXPECT_EQ(std::size(before) + std::size(after), lines) << "every refusal is logged";
}

TEST_F(BridgeTest, APluginThatCannotLoadIsReportedToEveryCreate) {
    Bridge broken("/nonexistent/libtunvo_plugin.so", out);
    broken.onFrame(json({{"op", "hello"}, {"version", 1}, {"userAgent", "x"}}).dump());
    EXPECT_EQ(Bridge::kNoPlugin, sent.back()["code"]);
    broken.onFrame(json({{"op", "create"}, {"element", 1}, {"attributes", json::array()}}).dump());
    EXPECT_EQ(Bridge::kNoPlugin, sent.back()["code"]);
    EXPECT_EQ("/nonexistent/libtunvo_plugin.so", sent.back()["path"]);
}

TEST_F(BridgeTest, AServiceReplyReachesThePageAsTextOfItsCall) {
    FakeService service;
    ASSERT_TRUE(service.listening());
    service.setReply([](const std::string&) { return std::string("it's <b>%27"); });
    hello();
    send({{"op", "create"},
          {"element", 4},
          {"attributes",
           attributes({{"type", "application/x-orvane-sslvpn"}, {"width", "1"}, {"height", "1"}, {"_probevpn", "1"}})}});
    serve([&] { return !sentOp("call").empty(); });
    ASSERT_EQ(1u, sentOp("call").size());
    json call = sentOp("call")[0];
    EXPECT_EQ(4, call["element"]);
    EXPECT_EQ("c_addcomm", call["function"]);
    EXPECT_EQ(json::array({"it's <b>'"}), call["args"]) << "a quote is text, and %27 reads as a browser reads it";
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}), service.requests());
    EXPECT_NE(std::string::npos, pluginLog().find("User Agent:'Agent/1.0'"));
}

TEST_F(BridgeTest, ARefusedServiceConnectionEndsTheRequestWithoutAStream) {
    hello();
    send({{"op", "create"}, {"element", 1}, {"attributes", attributes({{"_probevpn", "1"}})}});
    EXPECT_NE(std::string::npos, hostLines.find("connect failed"));
    EXPECT_NE(std::string::npos, pluginLog().find("[PluginInstance_URLNotify] ERROR! Network Error.\n"));
    EXPECT_EQ(std::string::npos, pluginLog().find("[PluginInstance_NewStream]"));
}

class PackageTest : public BridgeTest {
protected:
    void SetUp() override {
        BridgeTest::SetUp();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        package = readFile(TEST_INSTALLER);
        hello();
    }
    // An installing element; returns the fetch the host asked the extension for.
    json install(const std::string& size) {
        std::string signature = opensslBase64(signDigest("test-signing-key.pem", opensslMd5(package)));
        send({{"op", "create"},
              {"element", 1},
              {"attributes",
               attributes({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                           {"tunvosize", size}, {"signature", signature}, {"_installmethod", "sudo"},
                           {"_userpassword", "pw"}})}});
        answerCalls();
        return sentOp("fetch").empty() ? json() : sentOp("fetch").back();
    }
    // A piece of the body, in the extension's own layout (read without the JSON library) or in any other.
    void deliver(const json& fetch, const std::string& bytes, bool extensionLayout = true) {
        if (extensionLayout)
            sendText("{\"op\":\"data\",\"request\":" + fetch["request"].dump() + ",\"data\":\"" + opensslBase64(bytes) +
                     "\"}");
        else
            send({{"op", "data"}, {"request", fetch["request"]}, {"data", opensslBase64(bytes)}});
        answerCalls();
    }
    std::string packageFile() const {
        std::string log = pluginLog();
        size_t at = log.rfind("New tmp file name=");
        return at == std::string::npos ? "" : log.substr(at + 18, log.find('\n', at) - at - 18);
    }
    std::string package;
};

TEST_F(PackageTest, TheFetchedPackageIsStreamedVerifiedAndInstalled) {
    json fetch = install(std::to_string(package.size()));
    ASSERT_EQ(kPackageUrl, fetch["url"]);
    send({{"op", "response"}, {"request", fetch["request"]}, {"status", 200}, {"mimeType", "application/x-tar"}});
    answerCalls();
    deliver(fetch, package.substr(0, 100), false);
    deliver(fetch, package.substr(100));
    send({{"op", "end"}, {"request", fetch["request"]}, {"ok", true}});
    answerCalls();
    std::vector<json> calls = sentOp("call");
    std::vector<std::string> expected = {"onTunvoDownloadStart", "onTunvoDownloadProgress", "onTunvoDownloadProgress",
                                         "onTunvoDownloadProgress", "onTunvoDownloadDone", "onTunvoInstalling",
                                         "VPNInstallationOK"};
    EXPECT_EQ(expected, calledFunctions());
    ASSERT_EQ(expected.size(), calls.size());
    EXPECT_EQ(json::array({static_cast<double>(package.size())}), calls[0]["args"]);
    EXPECT_EQ(json::array({100.0}), calls[2]["args"]);
    EXPECT_EQ("SUDO\npw\n", readFile(std::string(PASSWAY_TEST_ROOT) + "var/run/installer.log"));
}

TEST_F(PackageTest, AnHttpErrorEndsTheRequestAndCancelsTheFetch) {
    json fetch = install("1");
    send({{"op", "response"}, {"request", fetch["request"]}, {"status", 404}, {"mimeType", "text/html"}});
    EXPECT_EQ("cancel", sent.back()["op"]);
    EXPECT_NE(std::string::npos, pluginLog().find("ERROR! Network Error. in SERVER_HTTP"));
    size_t before = sent.size();
    send({{"op", "data"}, {"request", fetch["request"]}, {"data", "AAAA"}});
    EXPECT_EQ(before, sent.size()) << "late data of a cancelled fetch is ignored";
}

TEST_F(PackageTest, AnUnreadableSizeMakesNoStartCallButTheDownloadGoesOn) {
    json fetch = install("12ab");
    EXPECT_EQ(std::vector<std::string>{}, calledFunctions());
    EXPECT_NE(std::string::npos, hostLines.find("page call not made"));
    EXPECT_EQ(kPackageUrl, fetch["url"]);
}

TEST_F(PackageTest, NoPartialPackageStaysWhenTheBodyBreaksOrTheTabCloses) {
    for (bool tabCloses : {false, true}) {
        json fetch = install("1");
        send({{"op", "response"}, {"request", fetch["request"]}, {"status", 200}, {"mimeType", "application/x-tar"}});
        deliver(fetch, package.substr(0, 100));
        std::string file = packageFile();
        ASSERT_FALSE(file.empty());
        ASSERT_EQ(0, access(file.c_str(), F_OK));
        if (tabCloses)
            bridge.shutdown();
        else
            send({{"op", "end"}, {"request", fetch["request"]}, {"ok", false}, {"error", "reset"}});
        EXPECT_NE(0, access(file.c_str(), F_OK)) << (tabCloses ? "tab closed" : "network failure");
        if (!tabCloses) send({{"op", "destroy"}, {"element", 1}});
    }
}

}  // namespace
