// Calls into the portal page: javascript: URLs of the functions the page defines.
#ifndef PASSWAY_INSTANCE_PAGEBRIDGE_H
#define PASSWAY_INSTANCE_PAGEBRIDGE_H

#include "PluginInstance.h"

#define JS_C_ADDCOMM "javascript:c_addcomm('"
#define JS_C_ADDCOMM_END "')"
#define JS_SSLDROP "ssldrop"
#define JS_DISCONNECTED_WITH_ERROR "&sslsetstatus,v1,disconnectedwitherror,1"
#define JS_VPN_NOT_INSTALLED "javascript:VPNNotInstalled()"
#define JS_DOWNLOAD_START "javascript:onTunvoDownloadStart("
#define JS_DOWNLOAD_PROGRESS "javascript:onTunvoDownloadProgress("
#define JS_DOWNLOAD_DONE "javascript:onTunvoDownloadDone()"
#define JS_INSTALLING "javascript:onTunvoInstalling()"
#define JS_INSTALLATION_FAILED "javascript:VPNInstallationFailed()"
#define JS_INSTALLATION_OK "javascript:VPNInstallationOK()"

// Hands the service's reply (in `data`) to the page as c_addcomm('...'); its return value comes back as
// the stream of that request.
void sendToJavaScript(struct_nsPluginInstance* record, const char* completedUrl);

#endif
