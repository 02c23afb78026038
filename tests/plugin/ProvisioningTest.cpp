// Installing the client from the portal, as the portal and the user see it: the download with its
// progress, the signature check, the installer, and the launch rules for what is found installed.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "PluginTestSupport.h"
#include "TestSigning.h"

#include <openssl/evp.h>

namespace {

const std::string kRoot = TestRoot::path();
const std::string kPackageUrl = "http://portal.test/client/package";

class ProvisioningTest : public PluginTest {
protected:
    void SetUp() override {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        TestRoot::reset();
        setenv("PASSWAY_TEST_ROOT", kRoot.c_str(), 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        unsetenv("INSTALLER_EXIT");
        unsetenv("INSTALLER_SLEEP");
        unsetenv("INSTALLER_IGNORE_TERM");
        package = readFile(TEST_INSTALLER);
        ASSERT_FALSE(package.empty());
        ASSERT_EQ(0, browser.initialize());
    }
    void TearDown() override { TestRoot::stopService(); }

    std::string signatureOf(const std::string& body, const char* key = "test-signing-key.pem") {
        return opensslBase64(signDigest(key, opensslMd5(body)));
    }
    // Embeds an installing instance for the package served with `mime` and the given signature.
    NPError install(const std::string& signature, const std::string& mime = "application/x-tar",
                    const std::string& method = "sudo") {
        browser.serve(kPackageUrl, mime, package);
        NPError created = -1;
        browser.create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                        {"tunvosize", std::to_string(package.size())}, {"signature", signature},
                        {"_installmethod", method}, {"_userpassword", "pass word"}},
                       &created);
        browser.pump();
        return created;
    }
    std::string packageFile() {
        std::string text = log();
        const std::string tag = "New tmp file name=";
        size_t at = text.rfind(tag);  // the latest download's
        return at == std::string::npos ? "" : text.substr(at + tag.size(), text.find('\n', at) - at - tag.size());
    }
    std::string installerLog() const { return readFile(kRoot + "var/run/installer.log"); }

    std::string package;
};

TEST_F(ProvisioningTest, SignedPackageIsDownloadedVerifiedAndInstalled) {
    browser.chunkSize = 100;  // many chunks
    EXPECT_EQ(0, install(signatureOf(package)));
    std::vector<std::string> expected = {"javascript:onTunvoDownloadStart(" + std::to_string(package.size()) + ")",
                                         "javascript:onTunvoDownloadProgress(0)"};
    for (size_t done = 100; done < package.size(); done += 100)
        expected.push_back("javascript:onTunvoDownloadProgress(" + std::to_string(done) + ")");
    expected.push_back("javascript:onTunvoDownloadProgress(" + std::to_string(package.size()) + ")");
    expected.push_back("javascript:onTunvoDownloadDone()");
    expected.push_back("javascript:onTunvoInstalling()");
    expected.push_back("javascript:VPNInstallationOK()");
    EXPECT_EQ(expected, browser.pageCalls());

    EXPECT_EQ("SUDO\npass word\n", installerLog()) << "the password arrives on the installer's input";
    struct stat info;
    ASSERT_EQ(0, stat((kRoot + "tunvo_x86_64").c_str(), &info));
    EXPECT_EQ(04755u, info.st_mode & 07777);
    std::string file = packageFile();
    ASSERT_FALSE(file.empty());
    EXPECT_NE(0, access(file.c_str(), F_OK)) << "the package file is removed";
    EXPECT_EQ(std::string::npos, log().find("pass word")) << "the password never reaches the log";
    EXPECT_TRUE(logged("[verify_install] TUNVO signature verification success!\n"));
    EXPECT_TRUE(logged("[NS_InstallVpn] VPN_JUST_INSTALLED\n"));
}

TEST_F(ProvisioningTest, TheMethodChoosesTheInstallerArgument) {
    install(signatureOf(package), "application/x-tar", "Sudo");
    EXPECT_EQ("SU\npass word\n", installerLog());
}

TEST_F(ProvisioningTest, BadSignaturesInstallNothing) {
    std::string sha1(20, '\0');
    EVP_Digest(package.data(), package.size(), reinterpret_cast<unsigned char*>(&sha1[0]), nullptr, EVP_sha1(),
               nullptr);
    const std::string signatures[] = {signatureOf(package, "test-other-key.pem"), "",
                                      opensslBase64(signDigest("test-signing-key.pem", sha1, "SHA1"))};
    size_t attempts = 0;
    for (const std::string& signature : signatures) {
        EXPECT_EQ(0, install(signature));
        ++attempts;
        EXPECT_EQ("javascript:VPNInstallationFailed()", browser.pageCalls().back()) << signature;
        EXPECT_EQ(attempts, count(browser.pageCalls(), "javascript:onTunvoInstalling()"));
        EXPECT_EQ("", installerLog()) << "the installer never runs an unverified file";
        std::string file = packageFile();
        EXPECT_NE(0, access(file.c_str(), F_OK)) << "the unverified file is removed";
    }
    EXPECT_TRUE(logged("[verify_install] TUNVO signature verification failed\n"));
}

TEST_F(ProvisioningTest, WrongTypeAndNetworkErrorsStopBeforeVerification) {
    install(signatureOf(package), "application/x-tar; charset=binary");
    EXPECT_TRUE(logged("Received response with wrong mime type(="));
    EXPECT_EQ(0u, count(browser.pageCalls(), "javascript:onTunvoInstalling()"));

    browser.cutAfterBytes = 200;
    browser.chunkSize = 100;
    install(signatureOf(package));
    EXPECT_TRUE(logged("PluginInstance_DestroyStream: Network problem\n"));
    EXPECT_TRUE(logged("[PluginInstance_URLNotify] ERROR! Network Error. in SERVER_HTTP\n"));
    EXPECT_EQ(0u, count(browser.pageCalls(), "javascript:onTunvoInstalling()"));
    EXPECT_EQ("", installerLog());
    // The partial file stays behind, and it was made for the user alone.
    std::string partial = packageFile();
    struct stat info;
    ASSERT_EQ(0, lstat(partial.c_str(), &info)) << partial;
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(0600u, info.st_mode & 07777);
    EXPECT_EQ(200, info.st_size);
    unlink(partial.c_str());
}

TEST_F(ProvisioningTest, AUserBreakIsVerifiedLikeACompleteDownload) {
    browser.cutAfterBytes = 200;
    browser.chunkSize = 100;
    browser.cutReason = NPRES_USER_BREAK;
    install(signatureOf(package));
    EXPECT_EQ(1u, count(browser.pageCalls(), "javascript:onTunvoDownloadDone()"));
    EXPECT_EQ("javascript:VPNInstallationFailed()", browser.pageCalls().back()) << "half a package does not verify";
}

TEST_F(ProvisioningTest, AFailingInstallerIsReported) {
    setenv("INSTALLER_EXIT", "2", 1);
    install(signatureOf(package));
    EXPECT_EQ("javascript:VPNInstallationFailed()", browser.pageCalls().back());
    EXPECT_TRUE(logged("[InstallVPN] - install proc exited with 2\n"));
    EXPECT_TRUE(logged("[NS_InstallVpn] ERROR! TUNVO installation failed, 'InstallVPN' return value '512'\n"));
    EXPECT_TRUE(logged("[verify_install] TUNVO Installation failed\n"));
}

TEST_F(ProvisioningTest, AnInstallerThatOutlivesTheWaitIsStopped) {
    setenv("INSTALLER_SLEEP", "30", 1);
    install(signatureOf(package));
    EXPECT_EQ("javascript:VPNInstallationFailed()", browser.pageCalls().back());
    EXPECT_TRUE(logged("[InstallVPN] installation error code =0. Exit status (WEXITSTATUS(res))= 0. WIFEXITED(res)=1\n"));
    std::string text = log();
    size_t polls = 0;
    for (size_t at = text.find("[InstallVPN] - waiting to let installation complete..."); at != std::string::npos;
         at = text.find("[InstallVPN] - waiting to let installation complete...", at + 1))
        ++polls;
    EXPECT_EQ(5u, polls);
}

// ---- what a launch finds installed ---------------------------------------------------------------

struct LaunchCase {
    const char* version;
    const char* offered;  // tunvoversion, or null
    unsigned mode;
    bool launched;
};

TEST_F(ProvisioningTest, VersionsCompareAsTextAndTheExecutableMustBeHealthy) {
    const LaunchCase cases[] = {
        {"7135.2016.429.1", nullptr, 04755, true},
        {"7135.2016.429.1\n", "7135.2016.429.10", 04755, false},  // the line feed sorts before '0'
        {"7135.2016.429.1", "7135.2016.1015.1", 04755, true},      // text order, not numbers
        {"7135.2016.429.0", nullptr, 04755, false},
        {"7135.2016.429.1", nullptr, 0755, false},  // no set-user-id bit: broken
    };
    for (const LaunchCase& c : cases) {
        TestRoot::reset();
        TestRoot::installClient();
        writeFile(kRoot + "etc/version.txt", c.version);
        chmod((kRoot + "tunvo_x86_64").c_str(), c.mode);
        FakeBrowser::Parameters params = {{"last_param", "1"}};
        if (c.offered != nullptr) params.push_back({"tunvoversion", c.offered});
        FakeBrowser::Instance* instance = browser.create(params);
        EXPECT_EQ(c.launched, TestRoot::servicePid() != 0) << c.version << " / " << (c.offered ? c.offered : "-");
        browser.destroy(instance);
        TestRoot::stopService();
    }
    EXPECT_TRUE(logged("[NeedInstall] tunvo binary is broken\n"));
    EXPECT_TRUE(logged("[NeedInstall] newer version is available\n"));
}

TEST_F(ProvisioningTest, PidFilesOfOtherProgramsOrDeadProcessesDoNotBlockALaunch) {
    for (const std::string& pidText : {std::to_string(getpid()), std::string("999999"), std::string("")}) {
        TestRoot::reset();
        TestRoot::installClient();
        writeFile(kRoot + "var/run/tunvo.pid", pidText);
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
        int pid = TestRoot::servicePid();
        EXPECT_NE(0, pid) << "pid file '" << pidText << "'";
        EXPECT_NE(getpid(), pid);
        browser.destroy(instance);
        TestRoot::stopService();
    }
    EXPECT_TRUE(logged("[LaunchVPN] pid file exist, but tunvo is not owner of the pid\n"));
    EXPECT_TRUE(logged("[TunvoOwnsPid] Cannot open /proc/0/cmdline file"));
}

TEST_F(ProvisioningTest, ALauncherThatFailsFailsTheInstance) {
    TestRoot::installClient();
    writeFile(kRoot + "tunvo_x86_64", "#!/bin/sh\nexit 3\n");
    chmod((kRoot + "tunvo_x86_64").c_str(), 04755);
    NPError created = -1;
    browser.create({{"last_param", "1"}}, &created);
    EXPECT_EQ(NPERR_OUT_OF_MEMORY_ERROR, created);
    EXPECT_TRUE(logged("LaunchVPN() - exited with 3\n"));
    EXPECT_TRUE(logged("[NS_LaunchVpn] ERROR! Unkown 'LaunchVPN' return value '-5'\n"));
}

TEST_F(ProvisioningTest, StoppingWithAnEmptyPidFileSignalsTheWholeProcessGroup) {
    TestRoot::installClient();
    pid_t child = fork();
    if (child == 0) {
        // In a process group of its own: the SIGTERM that goes to "pid 0" reaches only this child.
        setpgid(0, 0);
        static volatile sig_atomic_t terminated = 0;
        signal(SIGTERM, [](int) { terminated = 1; });
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
        TestRoot::stopService();
        writeFile(kRoot + "var/run/tunvo.pid", "");
        browser.destroy(instance);
        _exit(terminated ? 42 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(42, WEXITSTATUS(status)) << "the child saw the SIGTERM sent to pid 0";
}

}  // namespace

// ---- children never hurt the browser -------------------------------------------------------------

namespace {

// Runs `action` in a child process of the test, with SIGPIPE at its default disposition as in a browser
// that never touched it, and a watchdog: returns the child's wait status (exited with the action's result
// when the action came back).
int inBrowserProcess(const std::function<int()>& action, unsigned watchdogSeconds = 30) {
    pid_t child = fork();
    if (child == 0) {
        signal(SIGPIPE, SIG_DFL);
        alarm(watchdogSeconds);
        _exit(action());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

std::string describe(int status) {
    if (WIFSIGNALED(status)) return "the browser process died of signal " + std::to_string(WTERMSIG(status));
    return "the browser process exited with " + std::to_string(WEXITSTATUS(status));
}

// The process and thread columns of the first log line that holds `text` ({0, 0} when none does).
std::pair<int, int> writerOf(const std::string& log, const std::string& text) {
    size_t at = log.find(text);
    if (at == std::string::npos) return {0, 0};
    size_t start = log.rfind('\n', at) + 1;  // npos + 1 == 0 for the first line
    int process = 0, thread = 0;
    // date,time, process,thread,module, ...
    size_t third = log.find(',', log.find(',', start) + 1) + 1;
    sscanf(log.c_str() + third, "%d,%d", &process, &thread);
    return {process, thread};
}

const std::string kBigText(200000, 'x');  // more than a pipe holds: the write waits for the reader

}  // namespace

TEST_F(ProvisioningTest, AnInstallerThatCannotRunFailsTheInstallNotTheBrowser) {
    package = "#!/nonexistent/interpreter\n";
    int status = inBrowserProcess([&] {
        browser.serve(kPackageUrl, "application/x-tar", package);
        browser.create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                        {"tunvosize", "1"}, {"signature", signatureOf(package)}, {"_installmethod", "sudo"},
                        {"_userpassword", kBigText}});
        browser.pump();
        return browser.pageCalls().back() == "javascript:VPNInstallationFailed()" ? 0 : 1;
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << describe(status);
    EXPECT_TRUE(logged("[InstallVPN] - exec() failed=2\n"));
    EXPECT_TRUE(logged("[InstallVPN] - cannot hand the password to the installer=32 (Broken pipe)\n"));
    EXPECT_TRUE(logged("[InstallVPN] - install proc exited with 255\n"));
    int installer = writerOf(log(), "[InstallVpn] cmd='").second;
    EXPECT_NE(0, installer);
    EXPECT_NE(writerOf(log(), "[InstallVPN] - install proc exited").second, installer)
        << "the installer's own lines name it as their writer";
}

TEST_F(ProvisioningTest, AServiceThatCannotRunFailsTheLaunchNotTheBrowser) {
    TestRoot::installClient();
    chmod((kRoot + "tunvo_x86_64").c_str(), 04644);  // healthy by its bits, but not executable
    int status = inBrowserProcess([&] {
        NPError created = NPERR_NO_ERROR;
        browser.create({{"last_param", "1"}, {"big", kBigText}}, &created);
        return created == NPERR_OUT_OF_MEMORY_ERROR ? 0 : 1;
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << describe(status);
    EXPECT_TRUE(logged("[LaunchVPN] - execl failed=13 (Permission denied)\n"));
    EXPECT_TRUE(logged("[LaunchVPN] - cannot hand the parameters to the service=32 (Broken pipe)\n"));
    int service = writerOf(log(), "[LaunchVPN] - execl failed=").second;
    EXPECT_NE(0, service);
    EXPECT_NE(writerOf(log(), "LaunchVPN() - exited with 255").second, service) << "the child's line names the child";
}

TEST_F(ProvisioningTest, AnInstallerThatIgnoresSigtermIsKilledAndReaped) {
    setenv("INSTALLER_IGNORE_TERM", "1", 1);
    setenv("INSTALLER_SLEEP", "60", 1);
    int status = inBrowserProcess([&] {
        install(signatureOf(package));
        int installer = std::stoi("0" + readFile(kRoot + "var/run/installer.pid"));
        // Reaped: not even a zombie of this process is left to answer a signal.
        return installer > 0 && kill(installer, 0) == -1 && errno == ESRCH ? 0 : 1;
    });
    unsetenv("INSTALLER_IGNORE_TERM");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << describe(status) << " (14 is the watchdog: the installer held the browser's thread)";
    EXPECT_TRUE(logged("outlived SIGTERM, sending SIGKILL\n"));
    EXPECT_TRUE(logged("[NS_InstallVpn] call GetURL, buf='javascript:VPNInstallationFailed()'\n"));
}

TEST_F(ProvisioningTest, ChildrenGetTheirInputWhenTheBrowserHasNoStandardInput) {
    int status = inBrowserProcess([&] {
        close(0);
        install(signatureOf(package));
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}, {"user", "bob"}});
        int service = TestRoot::servicePid();
        browser.destroy(instance);
        return service != 0 ? 0 : 1;
    });
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << describe(status);
    EXPECT_EQ("SUDO\npass word\n", installerLog());
    EXPECT_EQ(0u, readFile(kRoot + "var/run/params.txt").find("user=bob&browser_pid="));
}

TEST_F(ProvisioningTest, ANegativePidIsNeverSignalled) {
    // A process group that cannot exist: were the pid signalled, nothing would be hurt.
    const std::string negative = "-2147483647";
    const std::string line = "[LaunchVPN] - pid file " + kRoot + "var/run/tunvo.pid holds a negative pid (" + negative +
                             "): not signalled\n";
    TestRoot::installClient();
    writeFile(kRoot + "var/run/tunvo.pid", negative);
    FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
    EXPECT_NE(0, TestRoot::servicePid()) << "the service is started as when there is no pid file";
    EXPECT_TRUE(logged(line));

    TestRoot::stopService();
    writeFile(kRoot + "var/run/tunvo.pid", negative);
    std::string before = log();
    browser.destroy(instance);
    std::string stop = log().substr(before.size());
    EXPECT_NE(std::string::npos, stop.find(line));
    EXPECT_EQ(std::string::npos, stop.find("no pid file"));
    EXPECT_EQ(std::string::npos, stop.find("about to kill"));
}
