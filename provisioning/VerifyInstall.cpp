// The downloaded package is installed only when its digest carries a valid signature.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "BrowserCalls.h"
#include "Encoding"
#include "PageBridge.h"
#include "PluginLog.h"
#include "Provisioning.h"
#include "Signature"

int verify_install(struct_nsPluginInstance* record, streamData* package) {
    CSignature check;
    int result = 1;
    PluginWriteLog(1, "[verify_install] Verifying signature\n");
    NPError error = NPN_GetURLNotify(record->instance, JS_INSTALLING, nullptr, g_h_js);
    if (error != NPERR_NO_ERROR) {
        // The line names the other call's text, as it always has.
        PluginWriteLog(4, "[verify_install] install notify failed. URL=%s,Error=%d", JS_DOWNLOAD_DONE, error);
    } else {
        CString digest;
        CRFCBase64::Encode(package->digest, sizeof package->digest, digest);
        CString signature(*record->signature);
        if (!check.VerifySignature(signature, digest)) {
            PluginWriteLog(1, "[verify_install] TUNVO signature verification failed\n");
            error = NPN_GetURLNotify(record->instance, JS_INSTALLATION_FAILED, nullptr, g_h_js);
            if (error != NPERR_NO_ERROR)
                PluginWriteLog(0, "[verify_install] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                               JS_INSTALLATION_FAILED, error);
        } else {
            PluginWriteLog(1, "[verify_install] TUNVO signature verification success!\n");
            record->doNotTerminate = 1;
            if (NS_InstallVpn(record, g_password, g_installationMethod) == RESULT_INSTALL_SUCCEEDED) {
                PluginWriteLog(1, "[verify_install] TUNVO installation success\n");
                result = 0;
            } else {
                PluginWriteLog(1, "[verify_install] TUNVO Installation failed\n");
            }
        }
    }
    // The password lives no longer than one attempt.
    g_password.SecureEmpty();
    g_installationMethod.Empty();
    if (result == 1 && remove(package->fileName) == 0) {
        // Logged on success, as the installer's removal is (the test is inverted on purpose).
        PluginWriteLog(3, "[verify_install] file remove error=%d,reason=%s.\n", errno, strerror(errno));
    }
    return result;
}
