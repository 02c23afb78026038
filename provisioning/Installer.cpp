// Whether the client must be installed, and running a verified package as its installer.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrowserCalls.h"
#include "ChildProcess.h"
#include "HashTable"
#include "InstallPaths.h"
#include "PageBridge.h"
#include "PluginLog.h"
#include "Provisioning.h"

int NeedInstall(UPropertyList& params) {
    PluginWriteLog(4, "[NeedInstall]\n");
    FILE* f = fopen(TUNVO_VERSION_FILE, "re");
    if (f == nullptr) {
        int error = errno;
        PluginWriteLog(0, "[NeedInstall] cannot open %s err=%d (%s)\n", TUNVO_VERSION_FILE, error, strerror(error));
        return 1;
    }
    char installed[50] = {};
    if (fgets(installed, 49, f) == nullptr) installed[0] = '\0';
    fclose(f);
    CString offered = params.getVar("tunvoversion", "");
    if (offered.IsEmpty()) {
        PluginWriteLog(3, "[NeedInstall] backward compatibility mode\n");
        offered = TUNVO_OFFERED_VERSION;
    }
    PluginWriteLog(3, "[NeedInstall] installed version = %s our version = %s\n", installed,
                   static_cast<const char*>(offered));
    // Byte-wise on purpose: no numeric reading of the dotted fields, and a line feed takes part.
    if (strcmp(installed, offered) < 0) {
        PluginWriteLog(0, "[NeedInstall] newer version is available\n");
        return 1;
    }
    struct stat info;
    if (stat(TUNVO_EXECUTABLE, &info) != 0) {
        int error = errno;
        PluginWriteLog(0, "[NeedInstall] cannot stat %s err=%d (%s)\n", TUNVO_EXECUTABLE, error, strerror(error));
        return 1;
    }
    if ((info.st_mode & 0x8000) != 0 && info.st_uid == PASSWAY_SERVICE_UID && (info.st_mode & 0x800) != 0) return 0;
    PluginWriteLog(0, "[NeedInstall] tunvo binary is broken\n");
    return 1;
}

namespace {

constexpr int kTermGraceMs = 1000;  // how long an installer may take to end after SIGTERM
constexpr int kKillGraceMs = 500;   // and after SIGKILL
constexpr int kGracePollMs = 20;

// Sends the installer `signal`. One that became another user (through su or sudo) cannot be signalled:
// the failure is logged and false returned.
bool signalInstaller(pid_t pid, int signal) {
    if (g_processCalls.kill(pid, signal) == 0) return true;
    int error = errno;
    PluginWriteLog(0, "[InstallVPN] kill(%d, %d) failed=%d (%s)\n", static_cast<int>(pid), signal, error,
                   strerror(error));
    return false;
}

// Polls for at most `ms` for the installer to end: true once it is reaped (or is not ours to wait for).
bool reapedWithin(pid_t pid, int ms) {
    for (int waited = 0;; waited += kGracePollMs) {
        if (g_processCalls.waitpid(pid, nullptr, WNOHANG) != 0) return true;
        if (waited >= ms) return false;
        g_processCalls.sleep(kGracePollMs);
    }
}

// Ends an installer that outlived the wait, which was sent SIGTERM when `terminated`: one still there after
// a grace gets SIGKILL. The browser's thread waits no longer than the graces: an installer that cannot be
// signalled, or that does not end even so, is left to finish on its own and reaped by a later entry point.
void endInstaller(pid_t pid, bool terminated) {
    if (terminated) {
        if (reapedWithin(pid, kTermGraceMs)) return;
        PluginWriteLog(0, "[InstallVPN] - installer %d outlived SIGTERM, sending SIGKILL\n",
                       static_cast<int>(pid));
        if (signalInstaller(pid, SIGKILL) && reapedWithin(pid, kKillGraceMs)) return;
    }
    leaveToFinish(pid);
}

}  // namespace

int InstallVPN(struct_nsPluginInstance* record, const char* password, const char* installMethod, CString package) {
    PluginWriteLog(4, "[InstallVPN] with new location = %s\n", static_cast<const char*>(package));
    char path[400] = {};
    snprintf(path, sizeof path, "%s", static_cast<const char*>(package));  // cut, never overrun
    PluginWriteLog(2, "[InstallVPN] installation path='%s'\n", path);
    int changed = chmod(path, 0755);
    PluginWriteLog(2, "[InstallVPN] chmod() ret=%d; install command='%s'\n", changed, path);

    const char* argument = installMethod != nullptr && strstr(installMethod, "sudo") != nullptr ? "SUDO" : "SU";
    static const ChildLogTexts kInstallerTexts = {"[InstallVPN] pipe error=%d\n", "[InstallVPN] fork error=%d\n",
                                                  "[InstallVpn] cmd='%s'; param='%s'\n",
                                                  "[InstallVPN] - exec() failed=%d\n",
                                                  "[InstallVPN] - cannot hand the password to the installer=%d (%s)\n"};
    pid_t pid = startWithInput(path, argument, password, kInstallerTexts);
    if (pid < 0) return RESULT_INSTALL_FAILED;

    int status = 0;
    bool ended = false;
    for (int poll = 0; poll < 5; ++poll) {
        if (g_processCalls.waitpid(pid, &status, WNOHANG) != 0) {
            ended = true;
            break;
        }
        PluginWriteLog(0, "[InstallVPN] - waiting to let installation complete...\n");
        g_processCalls.sleep(1000);
    }
    int result;
    if (ended && WIFEXITED(status)) {
        PluginWriteLog(0, "[InstallVPN] - install proc exited with %d\n", WEXITSTATUS(status));
        if (WEXITSTATUS(status) == 0) {
            PluginWriteLog(2, "[InstallVPN] - installation OK\n");
            result = RESULT_INSTALL_SUCCEEDED;
        } else {
            result = status;
        }
    } else {
        // One that ended by a signal is already reaped: its pid is free and never signalled.
        bool terminated = !ended && signalInstaller(pid, SIGTERM);
        PluginWriteLog(0, "[InstallVPN] installation error code =%d. Exit status (WEXITSTATUS(res))= %d. WIFEXITED(res)=%d\n",
                       status, WEXITSTATUS(status), WIFEXITED(status) ? 1 : 0);
        record->url->Format("%s%d", "", WEXITSTATUS(status));
        if (!ended) endInstaller(pid, terminated);
        result = RESULT_INSTALL_FAILED;
    }
    if (remove(path) == 0) PluginWriteLog(3, "[InstallVPN] file remove error=%d,reason=%s.\n", errno, strerror(errno));
    return result;
}

int NS_InstallVpn(struct_nsPluginInstance* record, const char* password, const char* installMethod) {
    PluginWriteLog(4, "[NS_InstallVpn]\n");
    CString package = g_server_http->fileName;
    int installed = InstallVPN(record, password, installMethod, package);
    const char* call = installed == RESULT_INSTALL_SUCCEEDED ? JS_INSTALLATION_OK : JS_INSTALLATION_FAILED;
    if (installed == RESULT_INSTALL_SUCCEEDED) {
        PluginWriteLog(2, "[NS_InstallVpn] VPN_JUST_INSTALLED\n");
        PluginWriteLog(4, "[NS_InstallVpn] call GetURL, buf='%s'\n", call);
    } else {
        PluginWriteLog(0, "[NS_InstallVpn] ERROR! TUNVO installation failed, 'InstallVPN' return value '%d'\n", installed);
        PluginWriteLog(2, "[NS_InstallVpn] call GetURL, buf='%s'\n", call);
    }
    NPError error = NPN_GetURLNotify(record->instance, call, nullptr, g_h_js);
    if (error != NPERR_NO_ERROR)
        PluginWriteLog(0, "[NS_InstallVpn] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n", call, error);
    return installed == RESULT_INSTALL_SUCCEEDED ? RESULT_INSTALL_SUCCEEDED : RESULT_INSTALL_FAILED;
}
