// The installer run and the service's start and stop.
//
// These three are placeholders while the installer and launcher are being built: they change nothing
// on the machine and answer as a machine without the client would. NS_InstallVpn tells the page the
// installation failed; NS_LaunchVpn tells it the client is not installed.
#include "BrowserCalls.h"
#include "PageBridge.h"
#include "PluginLog.h"
#include "Provisioning.h"

int NS_InstallVpn(struct_nsPluginInstance* record, const char*, const char*) {
    PluginWriteLog(0, "[NS_InstallVpn] installation is not available in this build\n");
    NPN_GetURLNotify(record->instance, JS_INSTALLATION_FAILED, nullptr, g_h_js);
    return RESULT_INSTALL_FAILED;
}

int NS_LaunchVpn(struct_nsPluginInstance* record, const char*, int mode) {
    if (mode != 0) return LaunchVPN(*record->data, mode);
    PluginWriteLog(0, "[NS_LaunchVpn] the service cannot be started by this build\n");
    NPError error = NPN_GetURLNotify(record->instance, JS_VPN_NOT_INSTALLED, nullptr, g_h_js);
    return error == NPERR_NO_ERROR ? RESULT_NOT_INSTALLED : RESULT_BROWSER_REFUSED;
}

int LaunchVPN(const char*, int) { return RESULT_LAUNCH_FAILED; }
