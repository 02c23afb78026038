// Provisioning through the test plug-in: the download, the signature check and the installer, the launch
// rules, what a request the browser refuses ends, and child processes that never hurt the browser.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <csignal>
#include <map>
#include <sys/resource.h>
#include <sys/wait.h>

#include "ChildProcess.h"
#include "Platform"
#include "PluginTest.h"

namespace {

const std::string kFailed = "javascript:VPNInstallationFailed()", kPackage = readFile(TEST_INSTALLER);

class Provisioning : public Live {
protected:
    void SetUp() override {
        Live::SetUp();
        browser.chunkSize = 100;
        setenv("PASSWAY_TEST_ROOT", kRoot.c_str(), 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        for (const char* variable : {"INSTALLER_EXIT", "INSTALLER_SLEEP", "INSTALLER_IGNORE_TERM"})
            unsetenv(variable);
    }
    // Embeds an installing instance for `package`, served with `mime`, and runs the requests.
    void install(const std::string& signature, const std::string& mime = "application/x-tar",
                 const std::string& method = "sudo", const std::string& password = "pass word",
                 const std::string& package = kPackage, NPError created = NPERR_NO_ERROR) {
        browser.serveShared("http://portal.test/client/package", mime,
                            std::make_shared<std::string>(package));
        create({{"_installvpn", "1"},
                {"hostrooturl", "http://portal.test"},
                {"tunvourl", "/client/package"},
                {"tunvosize", std::to_string(package.size())},
                {"signature", signature},
                {"_installmethod", method},
                {"_userpassword", password}},
               created);
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
    install(signatureOf(kPackage));
    std::vector<std::string> expected = {"onTunvoDownloadStart(" + std::to_string(kPackage.size()) + ")"};
    for (size_t done = 0; done < kPackage.size() + 100; done += 100)
        expected.push_back("onTunvoDownloadProgress(" + std::to_string(std::min(done, kPackage.size())) +
                           ")");
    expected.insert(expected.end(), {"onTunvoDownloadDone()", "onTunvoInstalling()", "VPNInstallationOK()"});
    for (std::string& call : expected) call = "javascript:" + call;
    EXPECT_EQ(expected, browser.urls(true));
    EXPECT_EQ("SUDO\npass word\n", installerLog()) << "the password arrives on the installer's input";
    EXPECT_TRUE(logged("[InstallVpn] cmd='")) << "the installer's command, logged before it runs";
    struct stat info = {};
    EXPECT_TRUE(stat((kRoot + "tunvo_x86_64").c_str(), &info) == 0 && (info.st_mode & 07777) == 04755);
    EXPECT_NE(0, access(packageFile().c_str(), F_OK)) << "the package file is removed";
    EXPECT_FALSE(logged("pass word")) << "the password never reaches the log";
    EXPECT_FALSE(logged("cannot hand")) << "a password handed over whole logs no failure";
}

// A bad signature (none, another key's) or a broken download (a wrong type, a network error, a user break)
// never runs the installer. An unverified file goes; a partial one stays, the user's alone.
TEST_F(Provisioning, NothingUnverifiedIsInstalled) {
    const std::string tar = "application/x-tar", good = signatureOf(kPackage);
    const struct {
        std::string signature, mime;
        NPReason reason;  // for a download cut after 200 bytes
        const char* line;
    } rows[] = {
        {"", tar, 0, "signature verification failed\n"},
        {signatureOf(kPackage, "test-other-key.pem"), tar, 0, "signature verification failed\n"},
        {good, tar + "; charset=binary", 0, "Received response with wrong mime type(="},
        {good, tar, NPRES_NETWORK_ERR, "ERROR! Network Error. in SERVER_HTTP\n"},
        {good, tar, NPRES_USER_BREAK, "signature verification failed\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        browser.cutAfterBytes = row.reason != 0 ? 200 : 0;
        browser.cutReason = row.reason;
        size_t before = log().size();
        install(row.signature, row.mime);
        EXPECT_TRUE(logged(row.line, before));
        EXPECT_EQ(std::string(row.line).find("verification") != std::string::npos, lastPageCall() == kFailed);
        EXPECT_EQ("", installerLog());
        struct stat info = {};
        bool kept = lstat(packageFile().c_str(), &info) == 0;
        EXPECT_EQ(row.reason == NPRES_NETWORK_ERR, kept);
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
        const char *exit, *sleep, *ignoreTerm, *method, *password, *page, *line;
        size_t polls;
    } rows[] = {
        {"2", "0", "", "sudo", "pass word", "Failed", "'InstallVPN' return value '512'\n", 0},
        {"kill", "0", "", "sudo", "pass word", "Failed",
         "error code =9. Exit status (WEXITSTATUS(res))= 0. WIFEXITED(res)=0\n", 0},
        {"0", "0", "", "Sudo", "p", "OK", "- install proc exited with 0\n", 0},  // any method but sudo is SU
        {"0", "30", "", "sudo", "pass word", "Failed",
         "error code =0. Exit status (WEXITSTATUS(res))= 0. WIFEXITED(res)=1\n", 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        setenv("INSTALLER_EXIT", row.exit, 1);
        setenv("INSTALLER_SLEEP", row.sleep, 1);
        setenv("INSTALLER_IGNORE_TERM", row.ignoreTerm, 1);
        size_t before = log().size();
        install(signatureOf(kPackage), "application/x-tar", row.method, row.password);
        EXPECT_EQ(std::string("javascript:VPNInstallation") + row.page + "()", lastPageCall());
        EXPECT_TRUE(logged(row.line, before));
        EXPECT_FALSE(logged("outlived SIGTERM", before)) << "one that ends on SIGTERM gets no SIGKILL";
        std::string given = std::string(row.method) == "sudo" ? "SUDO\n" : "SU\n";
        EXPECT_EQ(given + row.password + "\n", installerLog()) << "the method, and the password on the input";
        size_t polls = count(log().substr(before), "- waiting to let installation complete");
        EXPECT_TRUE(row.polls == 0 || row.polls == polls) << polls << " polls";
        int installer = atoi(readFile(kRun + "installer.pid").c_str());
        EXPECT_TRUE(installer > 0 && kill(installer, 0) == -1 && errno == ESRCH) << "not even a zombie";
    }
}

// The installer's system calls as a test sees them, in place of the real ones for one scope: kill fails with
// an errno of the row's choosing, pretends to deliver, or really signals; the one-second polls return at once
// (once the installer is ready for signals), the short grace polls really sleep.
class FakeProcessCalls {
public:
    static constexpr int kPretend = 0, kReal = -1;  // else the errno kill fails with
    FakeProcessCalls(int term, int kill) : m_saved(g_processCalls) {
        s_answers[SIGTERM] = term, s_answers[SIGKILL] = kill;
        s_signals.clear(), s_polls = 0, s_slept = 0, s_pid = 0;
        g_processCalls = {::fork, fakeKill, ::waitpid, fakeSleep};
    }
    ~FakeProcessCalls() { g_processCalls = m_saved; }
    static std::vector<int> s_signals;
    static int s_polls;        // one-second polls
    static unsigned s_slept;   // milliseconds asked for in all
    static pid_t s_pid;        // the process signalled

private:
    static int fakeKill(pid_t pid, int signal) {
        s_signals.push_back(signal), s_pid = pid;
        int answer = s_answers[signal];
        if (answer == kReal) return ::kill(pid, signal);
        errno = answer;
        return answer == kPretend ? 0 : -1;
    }
    static void fakeSleep(unsigned ms) {
        s_slept += ms;
        if (ms < 1000) return Sleep(ms);
        ++s_polls;
        for (int tries = 0; tries < 1000 && readFile(kRun + "installer.pid").empty(); ++tries) Sleep(10);
    }
    static std::map<int, int> s_answers;
    ProcessCalls m_saved;
};
std::vector<int> FakeProcessCalls::s_signals;
int FakeProcessCalls::s_polls;
unsigned FakeProcessCalls::s_slept;
pid_t FakeProcessCalls::s_pid;
std::map<int, int> FakeProcessCalls::s_answers;

// An installer that outlives the five polls and cannot be ended (it became root through su or sudo, or it
// hangs) holds the browser's thread only for the polls and the graces of the signals that were delivered. A
// kill that fails is logged with its errno; the installer is left to finish on its own and is reaped, once it
// has, by a later entry point: no zombie stays behind. The outcome is the timed-out installer's as ever.
TEST_F(Provisioning, AnInstallerThatCannotBeEndedIsLeftToFinishAndReapedLater) {
    const int pretend = FakeProcessCalls::kPretend, real = FakeProcessCalls::kReal;
    const char *termFailed = "[InstallVPN] kill(%d, 15) failed=1 (Operation not permitted)\n",
               *killFailed = "[InstallVPN] kill(%d, 9) failed=1 (Operation not permitted)\n",
               *outlived = "installer %d outlived SIGTERM, sending SIGKILL\n";
    const struct {
        int term, kill;
        std::vector<int> signals;
        unsigned mostSlept;  // ms: the five polls, then the graces
        bool left;           // still running when InstallVPN returns
        const char* line;    // %d: the installer's pid
    } rows[] = {
        {EPERM, real, {SIGTERM}, 5000, true, termFailed},
        {pretend, EPERM, {SIGTERM, SIGKILL}, 6000, true, killFailed},
        {pretend, pretend, {SIGTERM, SIGKILL}, 6500, true, outlived},  // signalled, yet it does not end
        {real, real, {SIGTERM, SIGKILL}, 6500, false, outlived},       // it ignores SIGTERM only
    };
    setenv("INSTALLER_SLEEP", "30", 1);
    setenv("INSTALLER_IGNORE_TERM", "1", 1);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        unlink((kRun + "installer.pid").c_str());
        const std::string package = home.path() + "/package";
        writeFile(package, kPackage);
        struct_nsPluginInstance record = {};
        CString url;
        record.url = &url;
        ScopedCapturingLog lines;
        FakeProcessCalls calls(row.term, row.kill);
        EXPECT_EQ(RESULT_INSTALL_FAILED, InstallVPN(&record, "pw", "sudo", package.c_str()));
        EXPECT_STREQ("0", url);
        EXPECT_NE(0, access(package.c_str(), F_OK)) << "the package is removed all the same";
        EXPECT_EQ(5, FakeProcessCalls::s_polls);
        EXPECT_LE(FakeProcessCalls::s_slept, row.mostSlept);
        EXPECT_EQ(row.signals, FakeProcessCalls::s_signals);
        const pid_t installer = FakeProcessCalls::s_pid;
        ASSERT_GT(installer, 0) << "signalled at all";  // never kill(0, ...): that is the whole group
        char line[128];
        snprintf(line, sizeof line, row.line, static_cast<int>(installer));
        EXPECT_NE(std::string::npos, lines.text().find(line)) << lines.text();
        if (row.left) {
            EXPECT_EQ(0, kill(installer, 0)) << "left running";
            EXPECT_EQ(1u, reapLeftChildren()) << "not reaped before it ends";
            kill(installer, SIGKILL);  // it ends by itself, as far as the plug-in knows
        }
        for (int tries = 0; tries < 1000 && reapLeftChildren() > 0; ++tries) Sleep(10);
        EXPECT_EQ(0u, reapLeftChildren());
        EXPECT_TRUE(kill(installer, 0) == -1 && errno == ESRCH) << "not even a zombie";
        snprintf(line, sizeof line, "[reapLeftChildren] child %d ended, status=9\n",
                 static_cast<int>(installer));
        EXPECT_TRUE(!row.left || lines.text().find(line) != std::string::npos) << lines.text();
    }
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
        SCOPED_TRACE(row.line);
        const bool started = row.created == 0;  // the service started, and the instance may stop it
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
        FakeBrowser::Instance* instance =
            create({{"last_param", "1"}, {"tunvoversion", row.offered}}, std::max(row.created, 0));
        EXPECT_TRUE(logged(row.line, before));
        EXPECT_EQ(started, servicePid() > 0 && servicePid() != getpid());
        std::string page = browser.urls(true).size() > calls ? lastPageCall() : "";
        EXPECT_EQ(row.created < 0 ? "javascript:VPNNotInstalled()" : "", page);
        stopService();
        writeFile(kRun + "tunvo.pid", "-2147483647");
        before = log().size();
        browser.destroy(instance);
        EXPECT_EQ(started, logged("holds a negative pid", before));
        EXPECT_EQ(started, logged("[NS_DestroyPluginInstance] doNotTerminate = 0\n", before));
        EXPECT_FALSE(logged("about to kill", before));
    }
}

// Children left to finish are reaped, each once it has ended, whatever their order: one still running does
// not hold back the others.
TEST(LeftChildren, EachIsReapedOnceItHasEnded) {
    pid_t running = fork();
    if (running == 0) {
        pause();
        _exit(0);
    }
    pid_t ended = fork();
    if (ended == 0) _exit(3);
    leaveToFinish(running);
    leaveToFinish(ended);
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(ended), &info, WEXITED | WNOWAIT);  // ended, not yet reaped
    EXPECT_EQ(1u, reapLeftChildren());
    EXPECT_EQ(-1, waitpid(ended, nullptr, WNOHANG)) << "reaped already";
    kill(running, SIGKILL);
    waitid(P_PID, static_cast<id_t>(running), &info, WEXITED | WNOWAIT);
    EXPECT_EQ(0u, reapLeftChildren());
}

// A write to a pipe that nobody reads fails with EPIPE and takes the SIGPIPE it raised, but not one that was
// pending already: that one is someone else's, and stays.
TEST(ChildInput, AWriteNobodyReadsFailsAndTakesOnlyItsOwnSigpipe) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    sigset_t pipeOnly, previous, pending;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &previous);  // so that a SIGPIPE left behind shows as pending
    for (bool another : {false, true}) {
        if (another) raise(SIGPIPE);
        EXPECT_EQ(EPIPE, writeHoldingOffSigpipe(ends[1], "x", 1));
        sigpending(&pending);
        EXPECT_EQ(another, sigismember(&pending, SIGPIPE) == 1) << (another ? "another's stays" : "its own");
    }
    const struct timespec now = {0, 0};
    sigtimedwait(&pipeOnly, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    close(ends[1]);
}

// A browser that ignores SIGCHLD has its children reaped for it: the launcher's wait then fails once the
// launcher has ended, and the launch goes on as after a launcher that exited with 0.
TEST_F(Provisioning, TheLaunchEndsWhenTheBrowserIgnoresItsChildren) {
    installClient();
    struct sigaction ignore = {}, saved = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &saved);
    int launched = LaunchVPN("user=x&", 0);
    sigaction(SIGCHLD, &saved, nullptr);
    EXPECT_EQ(RESULT_SERVICE_STARTED, launched);
    EXPECT_GT(servicePid(), 0);
}

// With no descriptor left for its input pipe, or no process to be had, neither the service nor the installer
// starts: the start fails at once, the log says why with the errno, and no descriptor stays open.
TEST_F(Provisioning, NoPipeOrNoProcessFailsTheStart) {
    installClient();
    const std::string package = home.path() + "/package";
    writeFile(package, kPackage);
    struct_nsPluginInstance record = {};
    CString url;
    record.url = &url;
    int free = open("/dev/null", O_RDONLY);  // the lowest free descriptor
    close(free);
    rlimit saved;
    getrlimit(RLIMIT_NOFILE, &saved);
    const ProcessCalls calls = g_processCalls;
    const struct {
        rlim_t descriptors;
        pid_t (*fork)();
        const char *launchLine, *installLine;
    } rows[] = {
        {static_cast<rlim_t>(free + 1), ::fork, "[LaunchVPN] pipe error = 24\n", "[InstallVPN] pipe error=24\n"},
        {saved.rlim_cur, [] { return errno = EAGAIN, pid_t(-1); }, "[LaunchVPN] fork error = 11\n",
         "[InstallVPN] fork error=11\n"},
    };
    for (const auto& row : rows) {
#if defined(__SANITIZE_ADDRESS__)
        if (row.descriptors != saved.rlim_cur) continue;  // the sanitizers test memory through a pipe of their own
#endif
        ScopedCapturingLog lines;
        const rlimit tight = {row.descriptors, saved.rlim_max};
        setrlimit(RLIMIT_NOFILE, &tight);
        g_processCalls.fork = row.fork;
        int launched = LaunchVPN("user=x&", 0);
        int installed = InstallVPN(&record, "pw", "sudo", package.c_str());
        g_processCalls = calls;
        setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(RESULT_LAUNCH_FAILED, launched);
        EXPECT_EQ(RESULT_INSTALL_FAILED, installed);
        EXPECT_NE(std::string::npos, lines.text().find(row.launchLine)) << lines.text();
        EXPECT_NE(std::string::npos, lines.text().find(row.installLine)) << lines.text();
        EXPECT_EQ(0, access(package.c_str(), F_OK)) << "a package that was never run stays for the caller";
        int next = open("/dev/null", O_RDONLY);
        EXPECT_EQ(free, next) << "a descriptor of the pipe stayed open";
        close(next);
    }
}

// A request the browser refuses is logged with the URL (as the plug-in names it) and the browser's error, and
// ends the path it was on: no further request, the instance of a probe or relay is kept, that of a launch or
// a download is not, and a refused outcome of the installer is not taken back.
TEST_F(Provisioning, ARefusedRequestIsLoggedAndEndsItsPath) {
    const std::string service = "http://127.0.0.1:44444/vpn.php?", ok = "javascript:VPNInstallationOK()",
                      failed = kFailed, cannot = "ERROR! cannot call GetURL. url='";
    const NPError fails = NPERR_OUT_OF_MEMORY_ERROR;
    enum Situation { Probe, Launch, Running, NotInstalled, Install, BadSignature, InstallerFails };
    const struct {
        Situation situation;
        std::string refused, line;  // line: %s is the refused URL
        NPError created;
        const char* next;  // logged after the line
        size_t after;      // requests made after the refused one
    } rows[] = {
        {Probe, service + "INFO", "[NS_ProbeVpn] " + cannot + "%s', errorcode='1'\n", 0,
         "[NS_NewPluginInstance] Error call of NS_probeVpn. '-7'\n", 0},
        {Launch, "javascript:c_addcomm(", "[sendToJavaScript] " + cannot + "%s', errorcode='2'\n", 0, "", 0},
        {Launch, service + "hello", "[sendToTunvo] " + cannot + "%s', errorcode='3'\n", 0, "", 0},
        {Running, "javascript:c_addcomm('&sslsetstatus", "[NS_LaunchVpn] " + cannot + "%s', errorcode='4'\n",
         fails, "[NS_NewPluginInstance] Error call of NS_LaunchVpn. '-7'\n", 0},
        {Launch, service + "CONNECT", "[NS_LaunchVpn] " + cannot + ok + "', errorcode='5'\n", fails,
         "[NS_NewPluginInstance] Error call of NS_LaunchVpn. '-7'\n", 0},
        {NotInstalled, "javascript:VPNNotInstalled()", "[NS_LaunchVpn] " + cannot + ok + "', errorcode='6'\n",
         fails, "[NS_NewPluginInstance] Error call of NS_LaunchVpn. '-7'\n", 0},
        {Install, "javascript:onTunvoDownloadStart(",
         "downloadTUNVO download notify failed. URL=javascript:onTunvoDownloadStart(,Error=7", fails,
         "[NS_NewPluginInstance] return error code of download=-1\n", 1},  // the package is still asked for
        {Install, "http://portal.test/", "downloadTUNVO download failed. URL=%s,Error=8", fails,
         "[NS_NewPluginInstance] return error code of download=-1\n", 0},
        {Install, "javascript:onTunvoInstalling()",
         "[verify_install] install notify failed. URL=javascript:onTunvoDownloadDone(),Error=9", 0,
         "[verify_install] file remove error=", 0},
        {BadSignature, failed, "[verify_install] " + cannot + "%s', errorcode='10'\n", 0,
         "[verify_install] file remove error=", 0},
        {Install, ok, "[NS_InstallVpn] " + cannot + "%s', errorcode='11'\n", 0,
         "[verify_install] TUNVO installation success\n", 0},
        {InstallerFails, failed, "[NS_InstallVpn] " + cannot + "%s', errorcode='12'\n", 0,
         "[verify_install] TUNVO Installation failed\n", 0},
        {Install, "javascript:onTunvoDownloadDone()", "DL done notify failed. URL=%s,Error=13", 0,
         "[verify_install] TUNVO installation success\n", 2},  // the package is whole: the install goes on
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        PluginTest::SetUp();
        setenv("INSTALLER_EXIT", row.situation == InstallerFails ? "2" : "0", 1);
        browser.refused = row.refused;
        browser.refusal = static_cast<NPError>(&row - rows + 1);  // the row's number
        answers = {"hello"};
        size_t before = log().size();
        std::vector<FakeBrowser::Instance*> made;
        if (row.situation == Probe) made.push_back(create({{"_probevpn", "1"}}, row.created));
        if (row.situation == Launch || row.situation == Running) installClient();
        if (row.situation == Running) made.push_back(browser.create({{"last_param", "1"}}));
        if (row.situation >= Launch && row.situation <= NotInstalled)
            made.push_back(create({{"last_param", "1"}}, row.created));
        if (row.situation == Launch) browser.pump(4);
        if (row.situation >= Install)
            install(row.situation == BadSignature ? "" : signatureOf(kPackage), "application/x-tar", "sudo",
                    "pass word", kPackage, row.created);
        const std::vector<FakeBrowser::Call>& calls = browser.calls();
        auto refused = std::find_if(calls.rbegin(), calls.rend(), [&](const FakeBrowser::Call& c) {
            return c.url.rfind(row.refused, 0) == 0;
        });
        ASSERT_NE(calls.rend(), refused);
        EXPECT_EQ(row.after, static_cast<size_t>(std::count_if(calls.rbegin(), refused, [](auto& c) {
                      return c.function.rfind("geturl", 0) == 0;
                  })));
        std::string line = row.line;
        if (line.find("%s") != std::string::npos) line.replace(line.find("%s"), 2, refused->url);
        size_t at = log().find(line, before);
        EXPECT_NE(std::string::npos, at) << line;
        EXPECT_TRUE(logged(row.next, at)) << row.next;
        EXPECT_EQ(std::string(row.next).rfind("[verify_install] TUNVO", 0) == 0, !installerLog().empty());
        browser.refused.clear();
        for (FakeBrowser::Instance* instance : made) browser.destroy(instance);
    }
}

// Children never hurt the browser: with SIGPIPE at its default disposition, as in a browser that never
// touched it, an installer or a service that cannot run fails only itself, and children get their input even
// when the browser has no standard input. Each case runs in a child process of the test, with a watchdog.
TEST_F(Provisioning, ChildrenThatCannotRunOrReadFailOnlyThemselves) {
    // big: more than a pipe holds
    const std::string big(200000, 'x'), broken = "#!/nonexistent/interpreter\n";
    const struct {
        std::function<bool()> action;
        std::vector<std::string> lines;
    } rows[] = {
        {[&] {
             install(signatureOf(broken), "application/x-tar", "sudo", big, broken);
             return lastPageCall() == kFailed;
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
        EXPECT_EQ(0, status) << row.lines[0] << ": wait status " << std::hex << status;
        for (const std::string& line : row.lines) EXPECT_TRUE(logged(line)) << line;
    }
}

}  // namespace
