// Replies of the local service handed to the page.
#include "PageBridge.h"

#include "BrowserCalls.h"
#include "NotifyData.h"
#include "PluginLog.h"

void sendToJavaScript(struct_nsPluginInstance* record, const char* /*completedUrl*/) {
    PluginWriteLog(2, "[sendToJavaScript] Data from server ='%s'\n", static_cast<const char*>(*record->data));
    int separator = record->data->Find("\r\n\r\n");
    if (separator > 0) {
        // A header block that came through is cut off; a reply that starts with the blank line is kept.
        *record->data = record->data->Mid(separator + 4);
        PluginWriteLog(2, "[sendToJavaScript] Data from server corrected='%s'\n", static_cast<const char*>(*record->data));
    }
    // The reply goes in as text: a zero byte in it ends it (the URL is a C string), and the call
    // stays well-formed.
    *record->url = JS_C_ADDCOMM;
    *record->url += static_cast<const char*>(*record->data);
    *record->url += JS_C_ADDCOMM_END;
    PluginWriteLog(2, "[sendToJavaScript] call GetURL, buf='%s'\n", static_cast<const char*>(*record->url));
    NPError error = NPN_GetURLNotify(record->instance, *record->url, nullptr, g_s_js);
    if (error != NPERR_NO_ERROR)
        PluginWriteLog(0, "[sendToJavaScript] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                       static_cast<const char*>(*record->url), error);
}
