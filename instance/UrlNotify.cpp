// The end of every request made with a request record: what comes next depends on its type.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "BrowserCalls.h"
#include "NotifyData.h"
#include "PageBridge.h"
#include "PasswayConfig.h"
#include "PluginInstance.h"
#include "PluginLog.h"
#include "Provisioning.h"
#include "ServiceChannel.h"

namespace {

// True when this instance's service is gone: its pid file names no running process. A missing pid
// file says nothing; a pid file without a number names process 0, which is never found.
bool serviceProcessGone() {
    FILE* f = fopen(PASSWAY_INSTALL_ROOT "var/run/tunvo.pid", "re");
    if (f == nullptr) return false;
    int pid = 0;
    if (fscanf(f, "%d", &pid) != 1) pid = 0;
    fclose(f);
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    struct stat info;
    if (stat(path, &info) == 0) return false;
    int error = errno;
    PluginWriteLog(0, "[PluginInstance_URLNotify] ERROR!  tunvo (%s) not found error=%d, str=%s\n", path, error,
                   strerror(error));
    return true;
}

// Tells the page the session is over and ends the relay loop.
void dropSession(struct_nsPluginInstance* record) {
    *record->url = JS_C_ADDCOMM JS_SSLDROP JS_C_ADDCOMM_END;
    PluginWriteLog(2, "[PluginInstance_URLNotify] call GetURL, buf='%s'\n", static_cast<const char*>(*record->url));
    destroyNotifyData(g_server_http);
    NPN_GetURL(record->instance, *record->url, nullptr);
}

}  // namespace

void PluginInstance_URLNotify(struct_nsPluginInstance* record, const char* url, NPReason reason, void* notifyData) {
    streamData* request = static_cast<streamData*>(notifyData);
    if (request == nullptr) {
        // Not one of ours (a browser may complete a request it made itself): nothing follows from it.
        PluginWriteLog(5, "[PluginInstance_URLNotify] aPlugin=%p, url=%s, reason=%d, no notify data\n",
                       static_cast<void*>(record), url, reason);
        return;
    }
    PluginWriteLog(5, "[PluginInstance_URLNotify] aPlugin=%d, url=%s, reason=%d, type=%d\n",
                   static_cast<int>(reinterpret_cast<intptr_t>(record)), url, reason, request->type);
    bool drop = false;
    if (reason == NPRES_NETWORK_ERR) {
        PluginWriteLog(0, "[PluginInstance_URLNotify] ERROR! Network Error.\n");
        if (request->type == NOTIFY_TUNVO_HTTP && GetDataFromTunvo(record) == 0) drop = true;
    }
    if (request->type == NOTIFY_S_JS && record->doNotTerminate == 0 && serviceProcessGone()) drop = true;
    if (drop) {
        dropSession(record);
        return;
    }
    switch (request->type) {
        case NOTIFY_TUNVO_HTTP:
            PluginWriteLog(2, "[PluginInstance_URLNotify] response notify for TUNVO_HTTP ='%s'\n",
                           static_cast<const char*>(*record->data));
            sendToJavaScript(record, url);
            break;
        case NOTIFY_SERVER_HTTP:
            if (reason != NPRES_NETWORK_ERR) {
                PluginWriteLog(1, "[PluginInstance_URLNotify] response notify for SERVER_HTTP. Installation starting\n");
                verify_install(record, request);
            } else {
                PluginWriteLog(0, "[PluginInstance_URLNotify] ERROR! Network Error. in SERVER_HTTP\n");
                destroyNotifyData(g_server_http);
            }
            break;
        case NOTIFY_S_JS:
            PluginWriteLog(2, "[PluginInstance_URLNotify] respnse notify for (status) SJS ='%s'\n",
                           static_cast<const char*>(*record->data));
            sendToTunvo(record, url);
            break;
        default:
            PluginWriteLog(2, "[PluginInstance_URLNotify] response notify Unhandled type ='%d'\n", request->type);
            break;
    }
}
