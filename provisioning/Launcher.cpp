// Starting the local service, finding it running through its pid file, and stopping it.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BrowserCalls.h"
#include "ChildProcess.h"
#include "HashTable"
#include "InstallPaths.h"
#include "PageBridge.h"
#include "PluginLog.h"
#include "Provisioning.h"
#include "ServiceChannel.h"

namespace {
// Reads the pid the pid file names into `pid` (0 when it holds no number): false when there is no pid file.
bool readPidFile(int& pid) {
    pid = 0;
    FILE* f = fopen(TUNVO_PID_FILE, "re");
    if (f == nullptr) return false;
    if (fscanf(f, "%d", &pid) != 1) pid = 0;
    fclose(f);
    return true;
}

// A negative number names no process: given to kill, it would signal a whole process group (-1: every
// process of the user). Such a pid is logged and never signalled.
bool namesNoProcess(int pid) {
    if (pid >= 0) return false;
    PluginWriteLog(0, "[LaunchVPN] - pid file %s holds a negative pid (%d): not signalled\n", TUNVO_PID_FILE, pid);
    return true;
}
}  // namespace

bool TunvoOwnsPid(int pid) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        PluginWriteLog(0, "[TunvoOwnsPid] Cannot open %s file (%s)\n", path, strerror(errno));
        return false;
    }
    char commandLine[512] = {};
    ssize_t n = read(fd, commandLine, sizeof commandLine - 1);
    bool owned = false;
    if (n < 1) {
        PluginWriteLog(0, "[TunvoOwnsPid] Cannot read file (%s)\n", strerror(errno));
    } else {
        commandLine[n] = '\0';
        owned = strcmp(commandLine, TUNVO_EXECUTABLE) == 0;  // argv[0] only, exactly
    }
    close(fd);
    return owned;
}

bool IsProcessRunning(long pid) {
    if (kill(static_cast<pid_t>(pid), 0) != -1) return true;
    return errno != 0;  // the utility's rule, kept: only a failure without errno reads as not running
}

int LaunchVPN(const char* params, int mode) {
    if (params == nullptr) params = "";
    PluginWriteLog(4, "[LaunchVPN]('%s', '%d')\n", params, mode);
    if (mode != 0) {
        int pid;
        if (!readPidFile(pid)) {
            PluginWriteLog(0, "[LaunchVPN] - no pid file (%s)\n", TUNVO_PID_FILE);
            return RESULT_LAUNCH_FAILED;
        }
        if (namesNoProcess(pid)) return RESULT_LAUNCH_FAILED;
        PluginWriteLog(2, "[LaunchVPN] - about to kill %d\n", pid);
        kill(pid, SIGTERM);  // ownership is not tested here: the service's own pid file names it
        return RESULT_LAUNCH_FAILED;
    }

    UPropertyList table;
    table.initFromValNameString(params, '&', '=');
    if (NeedInstall(table) != 0) return RESULT_NOT_INSTALLED;

    int pid;
    if (readPidFile(pid) && !namesNoProcess(pid) && kill(pid, 0) != -1) {
        if (TunvoOwnsPid(pid)) {
            PluginWriteLog(0, "[LaunchVPN] tunvo server already launched, pid=%d\n", pid);
            return RESULT_ALREADY_RUNNING;
        }
        PluginWriteLog(4, "[LaunchVPN] pid file exist, but tunvo is not owner of the pid\n");
    }

    static const ChildLogTexts kServiceTexts = {"[LaunchVPN] pipe error = %d\n", "[LaunchVPN] fork error = %d\n",
                                                nullptr, "[LaunchVPN] - execl failed=%d (%s)\n",
                                                "[LaunchVPN] - cannot hand the parameters to the service=%d (%s)\n"};
    pid_t child = startWithInput(TUNVO_EXECUTABLE, nullptr, params, kServiceTexts);
    if (child < 0) return RESULT_LAUNCH_FAILED;

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        PluginWriteLog(0, "LaunchVPN() - exited with %d\n", WEXITSTATUS(status));
        return WEXITSTATUS(status) == 0 ? RESULT_SERVICE_STARTED : RESULT_LAUNCH_FAILED;
    }
    if (WIFSIGNALED(status)) {
        PluginWriteLog(0, "LaunchVPN() - killed by signal %d\n", WTERMSIG(status));
        return RESULT_LAUNCH_FAILED;
    }
    PluginWriteLog(0, "LaunchVPN() - abnormal termination (status=%d)\n", status);
    return RESULT_LAUNCH_FAILED;
}

int NS_LaunchVpn(struct_nsPluginInstance* record, const char* params, int) {
    PluginWriteLog(4, "[NS_LaunchVpn]\n");
    int launched = LaunchVPN(params, 0);
    NPError error;
    switch (launched) {
        case RESULT_ALREADY_RUNNING:
            PluginWriteLog(2, "[NS_LaunchVpn] %s\n", "SERVER_STATUS_ALREADY_LAUNCHED");
            record->doNotTerminate = 1;
            *record->url = JS_C_ADDCOMM JS_DISCONNECTED_WITH_ERROR JS_C_ADDCOMM_END;
            PluginWriteLog(3, "[NS_LaunchVpn] call GetURL, buf='%s'\n", static_cast<const char*>(*record->url));
            error = NPN_GetURLNotify(record->instance, *record->url, nullptr, g_s_js);
            if (error != NPERR_NO_ERROR) {
                PluginWriteLog(0, "[NS_LaunchVpn] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                               static_cast<const char*>(*record->url), error);
                return RESULT_BROWSER_REFUSED;
            }
            return RESULT_ALREADY_RUNNING;
        case RESULT_SERVICE_STARTED: {
            PluginWriteLog(2, "[NS_LaunchVpn] %s\n", "SERVER_STATUS_JUST_STARTED");
            *record->url = TUNVO_SERVICE_URL;
            *record->url += "?CONNECT";
            PluginWriteLog(3, "[NS_LaunchVpn] Call Init url='%s'\n", static_cast<const char*>(*record->url));
            error = NPN_GetURLNotify(record->instance, *record->url, nullptr, g_tunvo_http);
            PluginWriteLog(3, "[NS_LaunchVpn] Call finished'\n");
            int result = RESULT_SERVICE_STARTED;
            if (error != NPERR_NO_ERROR) {
                // The URL shown is the installer's, as this line has always named it.
                PluginWriteLog(0, "[NS_LaunchVpn] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                               JS_INSTALLATION_OK, error);
                result = RESULT_BROWSER_REFUSED;
            }
            record->doNotTerminate = 0;
            return result;
        }
        case RESULT_NOT_INSTALLED:
            PluginWriteLog(2, "[NS_LaunchVpn] VPN_NOT_INSTALLED\n");
            PluginWriteLog(4, "[NS_LaunchVpn] call GetURL, buf='%s'\n", JS_VPN_NOT_INSTALLED);
            error = NPN_GetURLNotify(record->instance, JS_VPN_NOT_INSTALLED, nullptr, g_h_js);
            if (error != NPERR_NO_ERROR) {
                PluginWriteLog(0, "[NS_LaunchVpn] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                               JS_INSTALLATION_OK, error);
                return RESULT_BROWSER_REFUSED;
            }
            return RESULT_NOT_INSTALLED;
        default:
            PluginWriteLog(0, "[NS_LaunchVpn] ERROR! Unkown 'LaunchVPN' return value '%d'\n", launched);
            return RESULT_UNKNOWN_LAUNCH_RESULT;
    }
}
