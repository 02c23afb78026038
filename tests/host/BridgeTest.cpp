// passway-host as the extension sees it: messages in, messages out, the test plug-in in between; its bridge
// in this process, then the program itself.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "Bridge.h"
#include "FakeService.h"
#include "HostLog.h"
#include "TempHome.h"
#include "TestSigning.h"

using nlohmann::json;

namespace {

const json kHello = {{"op", "hello"}, {"version", 1}, {"userAgent", "Agent/1.0"}};
const NpapiHost::Parameters kProbe = {{"type", "application/x-orvane-sslvpn"}, {"width", "1"}, {"_probevpn", "1"}};

class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        setHostLogSink([this](const std::string& line) { hostLog += line, refusals += line.find("refused (") == 14; });
    }
    void TearDown() override { setHostLogSink(nullptr); }
    // Sends a message (or, given as a string, a frame's text) and carries what the plug-in asks for, answering
    // its page calls with nothing when `answering`. A stale EINTR in errno must change nothing.
    void send(const json& message) {
        bridge.onFrame(message.is_string() ? message.get<std::string>() : message.dump());
        errno = EINTR;
        bridge.run();
        while (answering && answered < sent.size())
            if (sent[answered++]["op"] == "call") send({{"op", "result"}, {"call", sent[answered - 1]["call"]}});
    }
    void create(const NpapiHost::Parameters& attributes) { send({{"op", "create"}, {"element", 4}, {"attributes", attributes}}); }
    std::string calls() const {
        std::string names;
        for (const json& m : sent) names += m["op"] == "call" ? m["function"].get<std::string>() + m["args"].dump() + " " : "";
        return names;
    }

    TempHome home;
    std::string hostLog;
    size_t refusals = 0, answered = 0;
    bool answering = false;
    std::vector<json> sent;
    FrameReader replies;
    FrameWriter out{[this](const char* data, size_t size) {
        replies.feed(data, size);
        std::string frame;
        for (uint32_t length; replies.next(frame, length) == FrameReader::Result::Frame;) sent.push_back(json::parse(frame));
        return true;
    }};
    Bridge bridge{PASSWAY_TEST_PLUGIN, out};
};

TEST_F(BridgeTest, BadInputGetsItsNumberedErrorAndALogLine) {
    const struct {
        const char *shows, *frame;
        int code;             // 0: taken
        const char* refused;  // the "refused" field's JSON, when checked
    } rows[] = {
        {"not JSON", "{\"op\":", 1, ""},
        {"not an object", "[1,2]", 1, ""},
        {"no op", R"({"element":1})", 4, "null"},
        {"an op that is no text", R"({"op":5})", 4, "5"},
        {"an unknown op", R"({"op":"part","id":1,"data":""})", 3, "\"part\""},
        {"a message before hello", R"({"op":"create","element":1,"attributes":[]})", 8, "\"create\""},
        {"another version", R"({"op":"hello","version":2,"userAgent":"x"})", 2, ""},
        {"hello without its agent", R"({"op":"hello","version":1})", 4, "\"hello\""},
        {"hello, an origin that is no text ignored", R"({"op":"hello","version":1,"userAgent":"x","origin":5})", 0, ""},
        {"a second hello", R"({"op":"hello","version":1,"userAgent":"x"})", 4, "\"hello\""},
        {"an element", R"({"op":"create","element":1,"attributes":[]})", 0, ""},
        {"attributes that are not pairs", R"({"op":"create","element":2,"attributes":[["a"]]})", 4, "\"create\""},
        {"an element id that is text", R"({"op":"destroy","element":"1"})", 4, "\"destroy\""},
        {"an element made twice", R"({"op":"create","element":1,"attributes":[]})", 6, ""},
        {"an unknown element", R"({"op":"destroy","element":9})", 6, ""},
        {"a result for no call", R"({"op":"result","call":77,"value":"x"})", 7, ""},
        {"data for no request", R"({"op":"data","request":77,"data":""})", 7, ""},
        {"a request id that is text", R"({"op":"data","request":"77","data":""})", 4, "\"data\""},
    };
    size_t refused = 0;
    for (const auto& row : rows) {
        size_t before = sent.size();
        send(row.frame);
        ASSERT_EQ(before + 1, sent.size()) << row.shows;
        EXPECT_EQ(row.code, sent.back().value("code", 0)) << row.shows;
        EXPECT_TRUE(!*row.refused || sent.back()["refused"].dump() == row.refused) << row.shows << ": " << sent.back();
        refused += row.code != 0;
    }
    EXPECT_EQ(refused, refusals) << "every refusal is logged";
}

TEST_F(BridgeTest, APluginThatCannotLoadIsReportedToEveryCreate) {
    Bridge broken("/nonexistent/libtunvo_plugin.so", out);
    for (const char* op : {"hello", "create"}) {
        broken.onFrame(json({{"op", op}, {"version", 1}, {"userAgent", ""}, {"element", 1}, {"attributes", json::array()}}).dump());
        EXPECT_EQ(json({{"op", "error"}, {"code", 5}, {"message", "no plug-in"}, {"path", "/nonexistent/libtunvo_plugin.so"},
                        {"version", 1}}), sent.back());
    }
}

TEST_F(BridgeTest, ARefusedServiceConnectionEndsTheRequestWithoutAStreamAndTheSession) {
    send(kHello);
    create(kProbe);
    EXPECT_NE(std::string::npos, hostLog.find("connect failed"));
    EXPECT_EQ(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("[PluginInstance_NewStream]"));
    EXPECT_EQ("c_addcomm[\"ssldrop\"] ", calls());
}

class PackageTest : public BridgeTest {
protected:
    void SetUp() override {
        BridgeTest::SetUp();
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        setenv("PASSWAY_TEST_ROOT", PASSWAY_TEST_ROOT, 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        answering = true;
        send(kHello);
    }
    // An installing element whose fetch is answered with `status`; returns the fetch's request id.
    json install(const std::string& size, int status = 200) {
        create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                {"tunvosize", size}, {"signature", opensslBase64(signDigest("test-signing-key.pem", opensslMd5(package)))},
                {"_installmethod", "sudo"}, {"_userpassword", "pw"}});
        EXPECT_EQ("http://portal.test/client/package", sent.back()["url"]);
        json request = sent.back()["request"];
        send({{"op", "response"}, {"request", request}, {"status", status}, {"mimeType", "application/x-tar"}});
        return request;
    }
    // A piece of the body in the extension's own layout, which is read without the JSON library (a leading
    // zero, which JSON does not allow, shows it), or in any other.
    void deliver(const json& request, const std::string& bytes, bool extensionLayout = true) {
        if (extensionLayout)
            send("{\"op\":\"data\",\"request\":0" + request.dump() + ",\"data\":\"" + opensslBase64(bytes) + "\"}");
        else
            send({{"op", "data"}, {"request", request}, {"data", opensslBase64(bytes)}});
    }
    std::string package = readFile(TEST_INSTALLER);
};

TEST_F(PackageTest, TheFetchedPackageIsStreamedVerifiedAndInstalled) {
    json request = install(std::to_string(package.size()));
    deliver(request, package.substr(0, 100), false);
    deliver(request, package.substr(100));
    send({{"op", "end"}, {"request", request}, {"ok", true}});
    std::string size = std::to_string(package.size()) + ".0]";
    EXPECT_EQ("onTunvoDownloadStart[" + size + " onTunvoDownloadProgress[0.0] onTunvoDownloadProgress[100.0] "
              "onTunvoDownloadProgress[" + size + " onTunvoDownloadDone[] onTunvoInstalling[] VPNInstallationOK[] ",
              calls());
    EXPECT_EQ("SUDO\npw\n", readFile(std::string(PASSWAY_TEST_ROOT) + "var/run/installer.log"));
}

TEST_F(PackageTest, AnHttpErrorCancelsTheFetchAndItsLateDataIsIgnored) {
    json request = install("1", 404);
    EXPECT_EQ(json({{"op", "cancel"}, {"request", request}, {"version", 1}}), sent.back());
    size_t before = sent.size();
    deliver(request, "late");
    deliver(request, "late", false);
    EXPECT_EQ(before, sent.size());
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
    EXPECT_NE(std::string::npos, hostLog.find("page call not made"));
}

// passway-host as a browser starts it: it finds the plug-in in the user's folder, relays the service's reply
// (a quote in it is text; %27 reads as a browser reads it), and ends when the tab closes its input.
TEST(HostProgram, FindsThePlugInRelaysTheServiceAndEndsWithItsInput) {
    TempHome home;
    FakeService service;
    service.setReply([](const std::string&) { return std::string("it's <b>%27"); });
    std::string plugin = home.path() + "/.mozilla/plugins/libtunvo_plugin.so", input, frame;
    writeFile(plugin, readFile(PASSWAY_TEST_PLUGIN));
    unsetenv("PASSWAY_HOST_PLUGIN");
    int in[2], out[2];
    ASSERT_EQ(0, pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC));
    pid_t host = fork();
    if (host == 0 && dup2(in[0], 0) == 0 && dup2(out[1], 1) == 1) execl(PASSWAY_HOST, PASSWAY_HOST, nullptr);
    if (host == 0) _exit(127);
    close(out[1]);
    FrameWriter writer([&](const char* data, size_t size) { return write(in[1], data, size) == ssize_t(size); });
    writer.send(kHello);
    writer.send({{"op", "create"}, {"element", 1}, {"attributes", kProbe}});
    FrameReader reader;
    std::vector<json> messages;
    char buffer[4096];
    uint32_t length = 0;
    for (ssize_t n = 0; messages.size() < 3 && (n = read(out[0], buffer, sizeof buffer)) > 0;)
        for (reader.feed(buffer, size_t(n)); reader.next(frame, length) == FrameReader::Result::Frame;)
            messages.push_back(json::parse(frame));
    ASSERT_EQ(3u, messages.size());
    EXPECT_EQ(plugin, messages[0]["plugin"]);
    EXPECT_EQ(json::array({"it's <b>'"}), messages[2]["args"]);
    EXPECT_EQ((std::vector<std::string>{"GET /vpn.php?INFO HTTP/1.0"}), service.requests());
    EXPECT_NE(std::string::npos, readFile(home.inFolder("tunvo_plugin.log")).find("User Agent:'Agent/1.0'"));
    close(in[1]);
    int status = 0;
    ASSERT_EQ(host, waitpid(host, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
