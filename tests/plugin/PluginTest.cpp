// The test plug-in in a fake browser, as a portal page, the local service and the user see it: the entry
// points, the parameters, the probe and the direct query, the relay, the download, signature check and
// installer, the launch rules, child processes that never hurt the browser, and what the texts cost.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <new>
#include <openssl/evp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "FakeBrowser.h"
#include "FakeService.h"
#include "PluginInstance.h"
#include "Provisioning.h"
#include "RunCommand.h"
#include "TempHome.h"
#include "TestSigning.h"

// Every CString buffer comes from operator new[]: counted here while g_counting is set.
bool g_counting = false;
size_t g_bytes = 0;
void* operator new[](size_t size) {
    g_bytes += g_counting ? size : 0;
    if (void* block = malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete[](void* block) noexcept {
    free(block);
}
void operator delete[](void* block, size_t) noexcept {
    free(block);
}

namespace {

const std::string kRoot = PASSWAY_TEST_ROOT, kRun = kRoot + "var/run/", kPid = std::to_string(getpid());
const std::string kFailed = "javascript:VPNInstallationFailed()", kPackage = readFile(TEST_INSTALLER);
int servicePid() {
    return atoi(readFile(kRun + "tunvo.pid").c_str());
}
void stopService() {
    if (servicePid() > 0) kill(servicePid(), SIGKILL);
    unlink((kRun + "tunvo.pid").c_str());
}
size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// A browser with the test plug-in loaded (not initialised), HOME in a fresh folder, an empty test root.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // a service this test kills is reaped here: its pid is free
        stopService();
        runCommand({"/bin/rm", "-rf", kRoot});
        writeFile(kRun + "requests.log", "");
    }
    void TearDown() override { stopService(); }
    std::string log() const { return readFile(home.inFolder("tunvo_plugin.log")); }
    bool logged(const std::string& text, size_t from = 0) const {
        return log().find(text, from) != std::string::npos;
    }
    static void installClient() {  // the fake service as a set-user-id tunvo_x86_64, and the version file
        writeFile(kRoot + "etc/version.txt", "7135.2016.429.1");
        ASSERT_EQ(0, runCommand({"/bin/cp", FAKE_SERVICE, kRoot + "tunvo_x86_64"}).exitCode);
        ASSERT_EQ(0, chmod((kRoot + "tunvo_x86_64").c_str(), 04755));
    }
    TempHome home;
    FakeBrowser browser{PASSWAY_TEST_PLUGIN};
};

// Initialised, with a page that records its c_addcomm messages and answers them from `answers` ("" after).
class Live : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ASSERT_EQ(0, browser.initialize());
        browser.page = [this](const std::string& function,
                              const std::string& argument) -> std::optional<std::string> {
            if (function != "c_addcomm") return std::nullopt;
            messages.push_back(argument);
            std::string next = answers.empty() ? "" : answers.front();
            if (!answers.empty()) answers.erase(answers.begin());
            return next;
        };
    }
    std::string lastPageCall() const { return browser.urls(true).empty() ? "" : browser.urls(true).back(); }
    std::vector<std::string> messages, answers;
};

TEST(PluginExports, ExactlyTheFourEntryPoints) {
    for (std::string path : {PASSWAY_PLUGIN, PASSWAY_TEST_PLUGIN})
        EXPECT_EQ(
            "NP_GetMIMEDescription\nNP_GetValue\nNP_Initialize\nNP_Shutdown\n",
            runCommand({"/bin/sh", "-c", "nm -D --defined-only " + path + " | awk '{print $3}' | sort"}).out);
}

TEST_F(PluginTest, AnswersBeforeInitialisationAndRefusesWhatItCannotServe) {
    EXPECT_STREQ("application/x-orvane-sslvpn:xvpn:Orvane Passway plugin", browser.getMIMEDescription());
    const char* text = "untouched";
    EXPECT_EQ(NPERR_INVALID_PARAM, browser.getValue(nullptr, NPPVpluginNeedsXEmbed, &text));
    EXPECT_STREQ("untouched", text);
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginNameString, &text));
    EXPECT_STREQ("Orvane Passway plugin", text);
    EXPECT_EQ(0, browser.getValue(nullptr, NPPVpluginDescriptionString, &text));
    EXPECT_STREQ("Orvane Passway plugin, Ver. 7135.2016.429.1", text);
    // A newer major version, a browser table short of forceredraw, a plug-in table short of setvalue.
    EXPECT_EQ(NPERR_INCOMPATIBLE_VERSION_ERROR, browser.initialize(0x100));
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 175));
    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, browser.initialize(27, 472, 112));
    // An old browser gets no notify requests; its refused probe still keeps the instance.
    ASSERT_EQ(0, browser.initialize(8, 176));
    EXPECT_EQ(13, browser.plugin().version);
    NPError created = -1;
    browser.create({{"_probevpn", "1"}}, &created);
    EXPECT_EQ(0, created);
    EXPECT_TRUE(logged("cannot call GetURL. url='http://127.0.0.1:44444/vpn.php?INFO', errorcode='8'"));
}

TEST_F(Live, HandlersAnswerWithoutARecordAndInitialiseOnTheFirstDrawable) {
    const NPPluginFuncs& p = browser.plugin();
    NPP_t bare = {};
    NPStream stream = {};
    char bytes[4] = {};
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, p.newp(nullptr, nullptr, NP_EMBED, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(268435455, p.writeready(&bare, &stream));
    EXPECT_EQ(4, p.write(&bare, &stream, 0, 4, bytes));
    EXPECT_EQ(NPERR_GENERIC_ERROR, p.setwindow(&bare, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, p.destroy(&bare, nullptr));
    p.urlnotify(&bare, "x", NPRES_DONE, nullptr);
    FakeBrowser::Instance* instance = browser.create({});
    EXPECT_EQ("3=0", browser.calls().back().url) << "the plug-in runs windowless";
    EXPECT_EQ(64000, p.writeready(&instance->npp, &stream));
    p.urlnotify(&instance->npp, "javascript:x()", NPRES_DONE, nullptr);  // no notify data: ignored
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_FALSE(logged("[PluginInstance_init]")) << "a window without a drawable initialises nothing";
    int drawable = 1;
    instance->window.window = &drawable;
    EXPECT_EQ(NPERR_NO_ERROR, p.setwindow(&instance->npp, &instance->window));
    EXPECT_TRUE(logged("[PluginInstance_init]\n"));
    // Calls no browser reaches, linked in directly.
    errno = 0;
    EXPECT_TRUE(IsProcessRunning(getpid())) << "a live process, even with no error left over";
    EXPECT_EQ(0, PluginInstance_init(nullptr, nullptr));
}

TEST_F(Live, ParametersPassToTheServiceUnescapedAndTheFirstMatchingNameDecides) {
    NPError created = -1;
    browser.create({}, &created);
    EXPECT_EQ(0, created);
    for (std::string line :
         {"vpnA:='browser_pid=" + kPid + "&'\n", std::string("[NS_NewPluginInstance] nothing to do\n"),
          "User Agent:'" + browser.userAgent + "'\n", std::string("Plugin version:'7135.2016.429.1'\n")})
        EXPECT_TRUE(logged(line)) << line;
    browser.create(
        {{"a", "1&b=2"}, {"", "v"}, {"x y", "'q'"}, {"_userpassword", "s3cret"}, {"_installmethod", "SUDO"}});
    EXPECT_TRUE(logged("vpnA:='a=1&b=2&=v&x y='q'&browser_pid=" + kPid + "&'\n"));
    EXPECT_TRUE(logged("_userpassword='**********'\n") && !logged("s3cret"))
        << "the password never reaches the log";
    EXPECT_TRUE(logged("[NS_NewPluginInstance] _installmethod='SUDO'\n"));
    FakeBrowser::Parameters odd = {
        {std::string(65536, 'n'), std::string(65536, 'v')}, {"", ""}, {"signature", "s"}};
    for (int i = 0; i < 1000; ++i) odd.push_back({"name" + std::to_string(i), "value"});
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroy(browser.create(odd, &created)));
    EXPECT_EQ(0, created);
    // Names match by substring; install wins over probe, probe over launch.
    FakeService service;
    browser.create({{"my_probevpn_x", ""}, {"last_param", ""}});
    browser.create({{"_installvpn_signature", ""},
                    {"_probevpn", ""},
                    {"hostrooturl", "http://portal"},
                    {"tunvourl", "/pkg"},
                    {"tunvosize", "12ab"}});
    EXPECT_EQ((std::vector<std::string>{"http://127.0.0.1:44444/vpn.php?INFO", "http://portal/pkg"}),
              browser.urls(false));
    EXPECT_EQ("javascript:onTunvoDownloadStart(12ab)", lastPageCall());
    EXPECT_TRUE(logged("[NS_NewPluginInstance] install='1' plugin->probeVpn='1' _last_param='0'\n"));
}

// The probe asks the service once and hands its reply to the page once: a header block is cut off, a zero
// byte ends the text, anything else arrives as it was. When the browser's request fails, the plug-in asks the
// service itself (one read of at most 1000 bytes, cut at its blank line); no service drops the session.
TEST_F(Live, TheProbeHandsTheServiceReplyToThePage) {
    std::string big;
    for (int i = 0; i < 1 << 20; ++i) big += "a'\n\"\\"[i % 5];
    const struct {
        bool failNetwork, service, closedInput;
        std::string reply, raw, message;
    } rows[] = {
        {false, true, false, big, "", big},  // first: its line is logged whole before the log file rotates
        {false, true, false, "X-Status: 1\r\n\r\npayload", "", "payload"},
        {false, true, false, "\r\n\r\nwhole", "", "\r\n\r\nwhole"},
        {false, true, false, "it's \"quoted\"\nand \\ on", "", "it's \"quoted\"\nand \\ on"},
        {false, true, false, std::string("abc\0def", 7), "", "abc"},
        {true, true, false, "direct", "", "direct"},
        {true, true, false, "", "no blank line here", ""},
        {true, true, false, "", "HTTP/1.1 200 OK\r\n\r\n" + std::string(2000, 'r'),
         std::string(1000 - 19, 'r')},
        {true, true, true, "direct", "", "direct"},  // the direct query's socket is descriptor 0
        {true, false, false, "", "", "ssldrop"},
    };
    for (const auto& row : rows) {
        std::unique_ptr<FakeService> service(row.service ? new FakeService : nullptr);
        if (service) service->setReply([&row](const std::string&) { return row.reply; });
        if (service) service->setRawReply(row.raw);
        messages.clear();
        browser.failNetwork = row.failNetwork;
        browser.create({{"_probevpn", "1"}});
        int input = row.closedInput ? dup(0) : -1;
        if (row.closedInput) close(0);
        browser.pump();
        if (input >= 0) dup2(input, 0), close(input);
        EXPECT_EQ(std::vector<std::string>{row.message}, messages)
            << row.reply.substr(0, 20) << row.raw.substr(0, 20);
        std::string asked = row.failNetwork ? "GET /vpn.php?INFO HTTP/1.1" : "GET /vpn.php?INFO HTTP/1.0";
        EXPECT_EQ(row.service, service && service->requests() == std::vector<std::string>{asked}) << asked;
        EXPECT_TRUE(row.reply != big || logged("[sendToJavaScript] Data from server ='" + big + "'\n"));
    }
    EXPECT_TRUE(logged("[sendToTunvo] It's probeVpn responce. Terminate work\n"));
    EXPECT_EQ(5u, count(log(), "ERROR!")) << "one for each network error, no other";
    EXPECT_TRUE(logged("[GetDataFromTunvo] connect() failed=Connection refused\n"));
    EXPECT_EQ("geturl", browser.calls().back().function) << "the drop asks for no notification";
}

// A relay session: the page's text goes to the service unescaped with a sequence number that is never reset,
// an empty answer is sent as INFO, the service can switch logging down and up, a second instance finds the
// service running and leaves it alone, and the instance that started it stops it.
TEST_F(Live, RelaysBetweenPageAndService) {
    installClient();
    answers = {"it's a \"b\"&c", "say=LOGGING_DISABLE", "", "say=LOGGING_ENABLE"};
    NPError created = -1;
    FakeBrowser::Instance* first = browser.create({{"last_param", "1"}, {"user", "bob"}}, &created);
    EXPECT_EQ(0, created);
    browser.pump(12);
    EXPECT_EQ("user=bob&browser_pid=" + kPid + "&", readFile(kRun + "params.txt"));
    EXPECT_EQ(
        "GET /vpn.php?CONNECT HTTP/1.0\nGET /vpn.php?it's a \"b\"&c&z=0 HTTP/1.0\nGET "
        "/vpn.php?say=LOGGING_DISABLE&z=1 "
        "HTTP/1.0\nGET /vpn.php?INFO&z=2 HTTP/1.0\nGET /vpn.php?say=LOGGING_ENABLE&z=3 HTTP/1.0\nGET "
        "/vpn.php?INFO&z=4 HTTP/1.0\n",
        readFile(kRun + "requests.log"));
    EXPECT_EQ((std::vector<std::string>{"connected", "ack:it's a \"b\"&c&z=0", "LOGGING_DISABLE",
                                        "ack:INFO&z=2", "LOGGING_ENABLE", "ack:INFO&z=4"}),
              messages);
    EXPECT_TRUE(logged("0,,,, log level has been changed to 31\n") &&
                logged("0,,,, log level has been changed to 63\n"));
    EXPECT_NE(std::string::npos, readFile(home.inFolder("orvane.conf")).find("default_log_level=63"));

    int pid = servicePid();
    browser.destroy(browser.create({{"last_param", "1"}}, &created));
    EXPECT_EQ(0, created);
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
    const std::pair<std::string, std::string> rows[] = {
        // what becomes of the service, the page's last message
        {"killed", "ssldrop"},
        {"pid file emptied", "ssldrop"},
        {"pid file removed", "ack:one&z=0"}};
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

std::string signatureOf(const std::string& body, const char* key = "test-signing-key.pem",
                        const char* md = "MD5") {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(body.data(), body.size(), digest, &length, EVP_get_digestbyname(md), nullptr);
    return opensslBase64(signDigest(key, std::string(reinterpret_cast<char*>(digest), length), md));
}

class Provisioning : public Live {
protected:
    void SetUp() override {
        Live::SetUp();
        setenv("PASSWAY_TEST_ROOT", kRoot.c_str(), 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        for (const char* variable : {"INSTALLER_EXIT", "INSTALLER_SLEEP", "INSTALLER_IGNORE_TERM"})
            unsetenv(variable);
    }
    // Embeds an installing instance for `package`, served with `mime`, and runs the requests.
    void install(const std::string& signature, const std::string& mime = "application/x-tar",
                 const std::string& method = "sudo", const std::string& password = "pass word",
                 const std::string& package = kPackage) {
        browser.serve("http://portal.test/client/package", mime, package);
        NPError created = -1;
        browser.create({{"_installvpn", "1"},
                        {"hostrooturl", "http://portal.test"},
                        {"tunvourl", "/client/package"},
                        {"tunvosize", std::to_string(package.size())},
                        {"signature", signature},
                        {"_installmethod", method},
                        {"_userpassword", password}},
                       &created);
        EXPECT_EQ(0, created);
        browser.pump();
    }
    std::string packageFile() const {  // the latest download's
        std::string text = log(), tag = "New tmp file name=";
        size_t at = text.rfind(tag) + tag.size();
        return text.substr(at, text.find('\n', at) - at);
    }
    static std::string installerLog() { return readFile(kRun + "installer.log"); }
};

TEST_F(Provisioning, ASignedPackageIsDownloadedVerifiedAndInstalled) {
    browser.chunkSize = 100;
    install(signatureOf(kPackage));
    std::vector<std::string> expected = {"javascript:onTunvoDownloadStart(" +
                                         std::to_string(kPackage.size()) + ")"};
    for (size_t done = 0; done < kPackage.size() + 100; done += 100)
        expected.push_back("javascript:onTunvoDownloadProgress(" +
                           std::to_string(std::min(done, kPackage.size())) + ")");
    expected.insert(expected.end(), {"javascript:onTunvoDownloadDone()", "javascript:onTunvoInstalling()",
                                     "javascript:VPNInstallationOK()"});
    EXPECT_EQ(expected, browser.urls(true));
    EXPECT_EQ("SUDO\npass word\n", installerLog()) << "the password arrives on the installer's input";
    struct stat info = {};
    EXPECT_TRUE(stat((kRoot + "tunvo_x86_64").c_str(), &info) == 0 && (info.st_mode & 07777) == 04755);
    EXPECT_NE(0, access(packageFile().c_str(), F_OK)) << "the package file is removed";
    EXPECT_FALSE(logged("pass word")) << "the password never reaches the log";
    EXPECT_TRUE(logged("[verify_install] TUNVO signature verification success!\n"));
}

// A bad signature (none, another key's, one of another digest) or a broken download (a wrong type, a network
// error, a user break) never runs the installer. An unverified file goes; a partial one stays, the user's
// alone.
TEST_F(Provisioning, NothingUnverifiedIsInstalled) {
    const struct {
        std::string signature;
        const char* mime;
        size_t cut;
        NPReason reason;
        const char* line;
    } rows[] = {
        {"", "application/x-tar", 0, 0, "signature verification failed\n"},
        {signatureOf(kPackage, "test-other-key.pem"), "application/x-tar", 0, 0,
         "signature verification failed\n"},
        {signatureOf(kPackage, "test-signing-key.pem", "SHA1"), "application/x-tar", 0, 0,
         "verification failed\n"},
        {signatureOf(kPackage), "application/x-tar; charset=binary", 0, 0,
         "Received response with wrong mime type(="},
        {signatureOf(kPackage), "application/x-tar", 200, NPRES_NETWORK_ERR,
         "ERROR! Network Error. in SERVER_HTTP\n"},
        {signatureOf(kPackage), "application/x-tar", 200, NPRES_USER_BREAK,
         "signature verification failed\n"},
    };
    browser.chunkSize = 100;
    for (const auto& row : rows) {
        browser.cutAfterBytes = row.cut;
        browser.cutReason = row.reason;
        size_t before = log().size();
        install(row.signature, row.mime);
        EXPECT_TRUE(logged(row.line, before)) << row.line;
        EXPECT_EQ(std::string(row.line).find("verification") != std::string::npos, lastPageCall() == kFailed)
            << row.line;
        EXPECT_EQ("", installerLog()) << row.line;
        struct stat info = {};
        bool kept = lstat(packageFile().c_str(), &info) == 0;
        EXPECT_EQ(row.reason == NPRES_NETWORK_ERR, kept) << row.line;
        EXPECT_TRUE(!kept ||
                    (S_ISREG(info.st_mode) && (info.st_mode & 07777) == 0600 && info.st_size == 200));
        unlink(packageFile().c_str());
    }
    EXPECT_TRUE(logged("[verify_install] file remove error=")) << "logged when the removal worked";
}

// What the installer does decides the page call and the log, and it is always reaped. The first row also
// keeps the test honest were this process to become the installer: its exit status would end the test.
TEST_F(Provisioning, TheInstallerOutcomeIsReported) {
    const struct {
        const char *exit, *sleep, *ignoreTerm, *method, *page, *line;
        size_t polls;
    } rows[] = {
        {"2", "0", "", "sudo", "Failed", "'InstallVPN' return value '512'\n", 0},
        {"0", "0", "", "Sudo", "OK", "- install proc exited with 0\n", 0},  // any method but sudo is SU
        {"0", "30", "", "sudo", "Failed",
         "error code =0. Exit status (WEXITSTATUS(res))= 0. WIFEXITED(res)=1\n", 5},
        {"0", "30", "1", "sudo", "Failed", "outlived SIGTERM, sending SIGKILL\n", 5},
    };
    for (const auto& row : rows) {
        setenv("INSTALLER_EXIT", row.exit, 1);
        setenv("INSTALLER_SLEEP", row.sleep, 1);
        setenv("INSTALLER_IGNORE_TERM", row.ignoreTerm, 1);
        size_t before = log().size();
        install(signatureOf(kPackage), "application/x-tar", row.method);
        EXPECT_EQ(std::string("javascript:VPNInstallation") + row.page + "()", lastPageCall()) << row.line;
        EXPECT_TRUE(logged(row.line, before)) << row.line;
        EXPECT_EQ(std::string(row.method) == "sudo" ? "SUDO\n" : "SU\n",
                  installerLog().substr(0, installerLog().find('\n') + 1));
        size_t polls = count(log().substr(before), "- waiting to let installation complete");
        EXPECT_TRUE(row.polls == 0 || row.polls == polls) << row.line << polls << " polls";
        int installer = atoi(readFile(kRun + "installer.pid").c_str());
        EXPECT_TRUE(installer > 0 && kill(installer, 0) == -1 && errno == ESRCH)
            << row.line << ": not even a zombie";
    }
    EXPECT_TRUE(logged("[verify_install] TUNVO Installation failed\n"));
}

// What a launch finds decides whether the service starts and what the page and the log are told: versions
// compare as text, the executable must be a set-user-id file, the launcher must work, and a pid file that
// names another program, no process, nothing or a negative number never blocks it. A negative pid is never
// signalled, not even when the instance stops the service. The first row keeps the test honest as above.
TEST_F(Provisioning, TheLaunchRules) {
    const struct {
        const char *version, *offered, *executable, *pid;
        unsigned mode;
        int created;
        const char* line;
    } rows[] = {
        // a version "" is the current one
        {"", "", "#!/bin/sh\nexit 3\n", nullptr, 04755, NPERR_OUT_OF_MEMORY_ERROR, "return value '-5'\n"},
        {"", "", "", nullptr, 04755, 0, "LaunchVPN() - exited with 0\n"},
        // A line feed sorts before '0': the installed version is the older.
        {"7135.2016.429.1\n", "7135.2016.429.10", "", nullptr, 04755, -1, "newer version is available\n"},
        {"", "7135.2016.1015.1", "", nullptr, 04755, 0, "LaunchVPN() - exited with 0\n"},  // not numbers
        {"7135.2016.429.0", "", "", nullptr, 04755, -1, "newer version is available\n"},
        {"", "", "", nullptr, 0755, -1, "tunvo binary is broken\n"},
        {"", "", "folder", nullptr, 04755, -1, "tunvo binary is broken\n"},
        {nullptr, "", "", nullptr, 04755, -1, "[NeedInstall] cannot open"},
        {"", "", "", kPid.c_str(), 04755, 0, "pid file exist, but tunvo is not owner of the pid\n"},
        {"", "", "", "999999", 04755, 0, "LaunchVPN() - exited with 0\n"},
        {"", "", "", "", 04755, 0, "[TunvoOwnsPid] Cannot open /proc/0/cmdline file"},
        {"", "", "", "-2147483647", 04755, 0, "holds a negative pid (-2147483647): not signalled\n"},
    };
    for (const auto& row : rows) {
        PluginTest::SetUp();
        installClient();
        std::string executable = kRoot + "tunvo_x86_64", folder = "folder";
        if (row.executable == folder) unlink(executable.c_str()), mkdir(executable.c_str(), 0755);
        if (*row.executable != '\0' && row.executable != folder) writeFile(executable, row.executable);
        chmod(executable.c_str(), row.mode);
        if (row.version == nullptr) unlink((kRoot + "etc/version.txt").c_str());
        if (row.version != nullptr && *row.version != '\0') writeFile(kRoot + "etc/version.txt", row.version);
        if (row.pid != nullptr) writeFile(kRun + "tunvo.pid", row.pid);
        size_t before = log().size(), calls = browser.urls(true).size();
        NPError created = -1;
        FakeBrowser::Instance* instance =
            browser.create({{"last_param", "1"}, {"tunvoversion", row.offered}}, &created);
        EXPECT_EQ(std::max(row.created, 0), created) << row.line;
        EXPECT_TRUE(logged(row.line, before)) << row.line;
        EXPECT_EQ(row.created == 0, servicePid() > 0 && servicePid() != getpid()) << row.line;
        std::string page = browser.urls(true).size() > calls ? lastPageCall() : "";
        EXPECT_EQ(row.created < 0 ? "javascript:VPNNotInstalled()" : "", page) << row.line;
        stopService();
        writeFile(kRun + "tunvo.pid", "-2147483647");
        before = log().size();
        browser.destroy(instance);
        EXPECT_TRUE(logged("holds a negative pid", before) == (row.created == 0) &&
                    !logged("about to kill", before))
            << row.line;
    }
}

// Children never hurt the browser: with SIGPIPE at its default disposition, as in a browser that never
// touched it, an installer or a service that cannot run fails only itself, and children get their input even
// when the browser has no standard input. Each case runs in a child process of the test, with a watchdog.
TEST_F(Provisioning, ChildrenThatCannotRunOrReadFailOnlyThemselves) {
    const std::string big(200000, 'x'),
        broken = "#!/nonexistent/interpreter\n";  // big: more than a pipe holds
    const struct {
        std::function<bool()> action;
        std::vector<std::string> lines;
    } rows[] = {
        {[&] {
             return install(signatureOf(broken), "application/x-tar", "sudo", big, broken),
                    lastPageCall() == kFailed;
         },
         {"exec() failed=2\n", "cannot hand the password to the installer=32 (Broken pipe)\n",
          "proc exited with 255\n"}},
        {[&] {
             installClient();
             chmod((kRoot + "tunvo_x86_64").c_str(), 04644);  // healthy by its bits, but not executable
             NPError created = NPERR_NO_ERROR;
             browser.create({{"last_param", "1"}, {"big", big}}, &created);
             return created == NPERR_OUT_OF_MEMORY_ERROR;
         },
         {"execl failed=13 (Permission denied)\n",
          "cannot hand the parameters to the service=32 (Broken pipe)\n"}},
        {[&] {
             close(0);
             install(signatureOf(kPackage));
             browser.destroy(browser.create({{"last_param", "1"}, {"user", "bob"}}));
             return installerLog() == "SUDO\npass word\n" &&
                    readFile(kRun + "params.txt").find("user=bob&") == 0;
         },
         {"install proc exited with 0\n"}},
    };
    for (const auto& row : rows) {
        PluginTest::SetUp();
        pid_t child = fork();
        if (child == 0) {
            signal(SIGPIPE, SIG_DFL);
            alarm(30);
            _exit(row.action() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status) << row.lines[0] << (WIFSIGNALED(status) ? ": died of signal " : ": exited with ")
                             << (WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        for (const std::string& line : row.lines) EXPECT_TRUE(logged(line)) << line;
    }
}

// What the texts cost while the browser creates one element, counted rather than timed. The text for the
// service grows by doubling (at most about 4x its length) and the log line that shows it is formatted and
// written: a fixed multiple (about 6x measured), where copying the text on every append costs its length
// times the number of appends (4,000x for 2,000 parameters). A parameter the service never sees makes no room
// in it.
TEST_F(Live, TheParameterTextCostsInStepWithItsLength) {
    FakeBrowser::Parameters many;
    for (int i = 0; i < 2000; ++i) many.push_back({"p" + std::to_string(i), std::string(200, 'v')});
    const std::pair<FakeBrowser::Parameters, size_t> rows[] = {
        {many, 2000 * 206},
        {{{"a", std::string(1 << 20, 'v')}, {"b", std::string(1 << 20, 'w')}}, 2 << 20},
        {{{"_probevpn", std::string(1 << 21, 'v')}}, 0},
    };
    browser.destroy(browser.create({}));  // the log file is opened once, outside the count
    for (const auto& [parameters, text] : rows) {
        g_bytes = 0;
        g_counting = true;
        browser.destroy(browser.create(parameters));
        g_counting = false;
        EXPECT_LT(g_bytes, 12 * text + (1 << 16))
            << parameters.size() << " parameters, " << text << " bytes of text";
    }
}

}  // namespace
