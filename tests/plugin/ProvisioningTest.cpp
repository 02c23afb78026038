// Installing the client from the portal, as the portal and the user see it: the download with its progress,
// the signature check, the installer, the launch rules for what is found installed, and child processes
// that never hurt the browser.
#include <cerrno>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

#include <openssl/evp.h>

#include "PluginTestSupport.h"
#include "TestSigning.h"

namespace {

const std::string kPackageUrl = "http://portal.test/client/package";
const std::string kFailed = "javascript:VPNInstallationFailed()", kInstalling = "javascript:onTunvoInstalling()";

class ProvisioningTest : public LivePluginTest {
protected:
    void SetUp() override {
        LivePluginTest::SetUp();
        setenv("PASSWAY_TEST_ROOT", kRoot.c_str(), 1);
        setenv("FAKE_SERVICE", FAKE_SERVICE, 1);
        for (const char* variable : {"INSTALLER_EXIT", "INSTALLER_SLEEP", "INSTALLER_IGNORE_TERM"}) unsetenv(variable);
        package = readFile(TEST_INSTALLER);
    }
    std::string signatureOf(const std::string& body, const char* key = "test-signing-key.pem") {
        return opensslBase64(signDigest(key, opensslMd5(body)));
    }
    // Embeds an installing instance for the package, served with `mime`, and runs the requests.
    NPError install(const std::string& signature, const std::string& mime = "application/x-tar",
                    const std::string& method = "sudo", const std::string& password = "pass word") {
        browser.serve(kPackageUrl, mime, package);
        NPError created = -1;
        browser.create({{"_installvpn", "1"}, {"hostrooturl", "http://portal.test"}, {"tunvourl", "/client/package"},
                        {"tunvosize", std::to_string(package.size())}, {"signature", signature},
                        {"_installmethod", method}, {"_userpassword", password}},
                       &created);
        browser.pump();
        return created;
    }
    std::string packageFile() const {  // the latest download's
        std::string text = log(), tag = "New tmp file name=";
        size_t at = text.rfind(tag);
        return at == std::string::npos ? "" : text.substr(at + tag.size(), text.find('\n', at) - at - tag.size());
    }
    std::string installerLog() const { return readFile(kRoot + "var/run/installer.log"); }
    std::string package;
};

TEST_F(ProvisioningTest, ASignedPackageIsDownloadedVerifiedAndInstalled) {
    browser.chunkSize = 100;
    EXPECT_EQ(0, install(signatureOf(package)));
    std::vector<std::string> expected = {"javascript:onTunvoDownloadStart(" + std::to_string(package.size()) + ")"};
    for (size_t done = 0; done < package.size() + 100; done += 100)
        expected.push_back("javascript:onTunvoDownloadProgress(" + std::to_string(std::min(done, package.size())) + ")");
    expected.insert(expected.end(), {"javascript:onTunvoDownloadDone()", kInstalling, "javascript:VPNInstallationOK()"});
    EXPECT_EQ(expected, browser.urls(true));
    EXPECT_EQ("SUDO\npass word\n", installerLog()) << "the password arrives on the installer's input";
    struct stat info = {};
    EXPECT_EQ(0, stat((kRoot + "tunvo_x86_64").c_str(), &info));
    EXPECT_EQ(04755u, info.st_mode & 07777);
    EXPECT_NE(0, access(packageFile().c_str(), F_OK)) << "the package file is removed";
    EXPECT_EQ(std::string::npos, log().find("pass word")) << "the password never reaches the log";
    EXPECT_TRUE(logged("[verify_install] TUNVO signature verification success!\n"));
    EXPECT_TRUE(logged("[NS_InstallVpn] VPN_JUST_INSTALLED\n"));
}

TEST_F(ProvisioningTest, BadSignaturesInstallNothing) {
    std::string sha1(20, '\0');
    EVP_Digest(package.data(), package.size(), reinterpret_cast<unsigned char*>(&sha1[0]), nullptr, EVP_sha1(), nullptr);
    const std::pair<const char*, std::string> rows[] = {{"another key", signatureOf(package, "test-other-key.pem")},
                                                        {"none", ""},
                                                        {"a SHA-1 digest", opensslBase64(signDigest("test-signing-key.pem", sha1, "SHA1"))}};
    for (const auto& [shows, signature] : rows) {
        EXPECT_EQ(0, install(signature));
        EXPECT_EQ(kFailed, lastPageCall()) << shows;
        EXPECT_EQ(kInstalling, browser.urls(true).end()[-2]) << shows;
        EXPECT_EQ("", installerLog()) << shows << ": the installer never runs an unverified file";
        EXPECT_NE(0, access(packageFile().c_str(), F_OK)) << shows << ": the unverified file is removed";
    }
    EXPECT_TRUE(logged("[verify_install] TUNVO signature verification failed\n"));
    EXPECT_TRUE(logged("[verify_install] file remove error=")) << "logged when the removal worked";
}

// A download that goes wrong stops before the signature check; a user break is checked like a whole one.
TEST_F(ProvisioningTest, ABrokenDownloadIsNeverInstalled) {
    const struct { const char* shows; const char* mime; size_t cut; NPReason reason; const char* line; } rows[] = {
        {"a wrong type", "application/x-tar; charset=binary", 0, 0, "Received response with wrong mime type(="},
        {"a network error", "application/x-tar", 200, NPRES_NETWORK_ERR, "ERROR! Network Error. in SERVER_HTTP\n"},
        {"a user break", "application/x-tar", 200, NPRES_USER_BREAK, "TUNVO signature verification failed\n"},
    };
    browser.chunkSize = 100;
    for (const auto& row : rows) {
        browser.cutAfterBytes = row.cut;
        browser.cutReason = row.reason;
        install(signatureOf(package), row.mime);
        EXPECT_TRUE(logged(row.line)) << row.shows;
        EXPECT_EQ(row.reason == NPRES_USER_BREAK, lastPageCall() == kFailed) << row.shows;
        EXPECT_EQ("", installerLog()) << row.shows;
        if (row.reason != NPRES_NETWORK_ERR) continue;
        // The partial file stays behind, made for the user alone.
        struct stat info = {};
        ASSERT_EQ(0, lstat(packageFile().c_str(), &info)) << packageFile();
        EXPECT_EQ(std::make_tuple(true, 0600u, 200l), std::make_tuple(S_ISREG(info.st_mode) != 0, info.st_mode & 07777, info.st_size));
        unlink(packageFile().c_str());
    }
}

// What the installer does decides the page call and the log. The first row also keeps the test honest were
// the browser's own process to become the installer: its exit status would end the test.
TEST_F(ProvisioningTest, TheInstallerOutcomeIsReported) {
    const struct { const char* shows; const char *exit, *sleep; bool ignoreTerm; const char *method, *page, *line; size_t polls; } rows[] = {
        {"exits with 2", "2", "0", false, "sudo", "Failed", "'InstallVPN' return value '512'\n", 0},
        {"any method but sudo is SU", "0", "0", false, "Sudo", "OK", "- install proc exited with 0\n", 0},
        {"outlives the wait", "0", "30", false, "sudo", "Failed", "error code =0. Exit status (WEXITSTATUS(res))= 0. WIFEXITED(res)=1\n", 5},
        {"ignores SIGTERM", "0", "30", true, "sudo", "Failed", "outlived SIGTERM, sending SIGKILL\n", 5},
    };
    for (const auto& row : rows) {
        setenv("INSTALLER_EXIT", row.exit, 1);
        setenv("INSTALLER_SLEEP", row.sleep, 1);
        if (row.ignoreTerm) setenv("INSTALLER_IGNORE_TERM", "1", 1);
        size_t before = log().size();
        install(signatureOf(package), "application/x-tar", row.method);
        EXPECT_EQ(std::string("javascript:VPNInstallation") + row.page + "()", lastPageCall()) << row.shows;
        std::string text = log().substr(before);
        EXPECT_NE(std::string::npos, text.find(row.line)) << row.shows;
        EXPECT_EQ(std::string(row.method) == "sudo" ? "SUDO" : "SU", installerLog().substr(0, installerLog().find('\n'))) << row.shows;
        size_t polls = 0;
        for (const std::string& line : lines(text)) polls += line.find("- waiting to let installation complete") != std::string::npos;
        EXPECT_TRUE(row.polls == 0 || row.polls == polls) << row.shows << ": " << polls << " polls";
        // Reaped: not even a zombie of this process is left to answer a signal.
        int installer = atoi(readFile(kRoot + "var/run/installer.pid").c_str());
        EXPECT_TRUE(installer > 0 && kill(installer, 0) == -1 && errno == ESRCH) << row.shows;
    }
    EXPECT_TRUE(logged("[verify_install] TUNVO Installation failed\n"));
}

// What a launch finds installed decides whether the service starts (text order of versions, a healthy
// set-user-id executable, a launcher that works) and what the page and the log are told.
TEST_F(ProvisioningTest, TheLaunchRulesForWhatIsInstalled) {
    const struct { const char* shows; const char *version, *offered; std::string executable; unsigned mode; NPError created; const char *page, *line; } rows[] = {
        {"a launcher that fails", "7135.2016.429.1", nullptr, "#!/bin/sh\nexit 3\n", 04755, NPERR_OUT_OF_MEMORY_ERROR, nullptr,
         "[NS_LaunchVpn] ERROR! Unkown 'LaunchVPN' return value '-5'\n"},
        {"the current version", "7135.2016.429.1", nullptr, "", 04755, 0, nullptr, "LaunchVPN() - exited with 0\n"},
        {"a line feed sorts before '0'", "7135.2016.429.1\n", "7135.2016.429.10", "", 04755, 0, "VPNNotInstalled", "newer version is available\n"},
        {"text order, not numbers", "7135.2016.429.1", "7135.2016.1015.1", "", 04755, 0, nullptr, "LaunchVPN() - exited with 0\n"},
        {"an older version", "7135.2016.429.0", nullptr, "", 04755, 0, "VPNNotInstalled", "newer version is available\n"},
        {"no set-user-id bit", "7135.2016.429.1", nullptr, "", 0755, 0, "VPNNotInstalled", "tunvo binary is broken\n"},
        {"a folder", "7135.2016.429.1", nullptr, "folder", 04755, 0, "VPNNotInstalled", "tunvo binary is broken\n"},
        {"no version file", nullptr, nullptr, "", 04755, 0, "VPNNotInstalled", "[NeedInstall] cannot open"},
    };
    for (const auto& row : rows) {
        PluginTest::SetUp();
        installClient();
        if (row.version == nullptr) unlink((kRoot + "etc/version.txt").c_str());
        if (row.version != nullptr) writeFile(kRoot + "etc/version.txt", row.version);
        if (row.executable == "folder") unlink((kRoot + "tunvo_x86_64").c_str()), mkdir((kRoot + "tunvo_x86_64").c_str(), 0755);
        if (!row.executable.empty() && row.executable != "folder") writeFile(kRoot + "tunvo_x86_64", row.executable);
        chmod((kRoot + "tunvo_x86_64").c_str(), row.mode);
        FakeBrowser::Parameters parameters = {{"last_param", "1"}};
        if (row.offered != nullptr) parameters.push_back({"tunvoversion", row.offered});
        size_t before = log().size(), calls = browser.urls(true).size();
        NPError created = -1;
        browser.destroy(browser.create(parameters, &created));
        std::string page = browser.urls(true).size() > calls ? lastPageCall() : "";
        EXPECT_EQ(row.created, created) << row.shows;
        EXPECT_NE(std::string::npos, log().find(row.line, before)) << row.shows;
        EXPECT_EQ(row.page ? std::string("javascript:") + row.page + "()" : "", page) << row.shows;
    }
}

// A pid file that names another program, no process, nothing or a negative number never blocks a launch; a
// negative pid is never signalled, not even when the instance stops the service.
TEST_F(ProvisioningTest, PidFilesThatNameNoServiceDoNotBlockALaunch) {
    const std::string negative = "-2147483647";
    const std::pair<std::string, const char*> rows[] = {
        {std::to_string(getpid()), "[LaunchVPN] pid file exist, but tunvo is not owner of the pid\n"},
        {"999999", "LaunchVPN() - exited with 0\n"},
        {"", "[TunvoOwnsPid] Cannot open /proc/0/cmdline file"},
        {negative, "holds a negative pid (-2147483647): not signalled\n"},
    };
    for (const auto& [pidText, line] : rows) {
        PluginTest::SetUp();
        installClient();
        writeFile(kRoot + "var/run/tunvo.pid", pidText);
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}});
        EXPECT_GT(servicePid(), 0) << "pid file '" << pidText << "'";
        EXPECT_NE(getpid(), servicePid());
        EXPECT_TRUE(logged(line)) << pidText;
        stopService();
        writeFile(kRoot + "var/run/tunvo.pid", negative);
        size_t before = log().size();
        browser.destroy(instance);
        std::string stop = log().substr(before);
        EXPECT_NE(std::string::npos, stop.find("holds a negative pid")) << stop;
        EXPECT_EQ(std::string::npos, stop.find("about to kill")) << stop;
    }
}

// ---- children never hurt the browser -------------------------------------------------------------

// Runs `action` in a child process, with SIGPIPE at its default disposition as in a browser that never touched
// it and a watchdog: the child's wait status, described.
std::string inBrowserProcess(const std::function<bool()>& action) {
    pid_t child = fork();
    if (child == 0) {
        signal(SIGPIPE, SIG_DFL);
        alarm(30);
        _exit(action() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? "died of signal " + std::to_string(WTERMSIG(status)) : "exited with " + std::to_string(WEXITSTATUS(status));
}

const std::string kBigText(200000, 'x');  // more than a pipe holds: the write waits for the reader

TEST_F(ProvisioningTest, AnInstallerThatCannotRunFailsTheInstallNotTheBrowser) {
    package = "#!/nonexistent/interpreter\n";
    EXPECT_EQ("exited with 0", inBrowserProcess([&] {
        install(signatureOf(package), "application/x-tar", "sudo", kBigText);
        return lastPageCall() == kFailed;
    }));
    EXPECT_TRUE(logged("[InstallVPN] - exec() failed=2\n"));
    EXPECT_TRUE(logged("[InstallVPN] - cannot hand the password to the installer=32 (Broken pipe)\n"));
    EXPECT_TRUE(logged("[InstallVPN] - install proc exited with 255\n"));
}

TEST_F(ProvisioningTest, AServiceThatCannotRunFailsTheLaunchNotTheBrowser) {
    installClient();
    chmod((kRoot + "tunvo_x86_64").c_str(), 04644);  // healthy by its bits, but not executable
    EXPECT_EQ("exited with 0", inBrowserProcess([&] {
        NPError created = NPERR_NO_ERROR;
        browser.create({{"last_param", "1"}, {"big", kBigText}}, &created);
        return created == NPERR_OUT_OF_MEMORY_ERROR;
    }));
    EXPECT_TRUE(logged("[LaunchVPN] - execl failed=13 (Permission denied)\n"));
    EXPECT_TRUE(logged("[LaunchVPN] - cannot hand the parameters to the service=32 (Broken pipe)\n"));
}

TEST_F(ProvisioningTest, ChildrenGetTheirInputWhenTheBrowserHasNoStandardInput) {
    EXPECT_EQ("exited with 0", inBrowserProcess([&] {
        close(0);
        install(signatureOf(package));
        FakeBrowser::Instance* instance = browser.create({{"last_param", "1"}, {"user", "bob"}});
        bool started = servicePid() > 0;
        browser.destroy(instance);
        return started;
    }));
    EXPECT_EQ("SUDO\npass word\n", installerLog());
    EXPECT_EQ(0u, readFile(kRoot + "var/run/params.txt").find("user=bob&browser_pid="));
}

}  // namespace
