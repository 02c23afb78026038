// The four request records: every URL the plug-in asks the browser for carries one of them as its
// notify data, and its type says what the reply is for.
#ifndef PASSWAY_INSTANCE_NOTIFYDATA_H
#define PASSWAY_INSTANCE_NOTIFYDATA_H

#include <cstdio>

#include "String"

enum NotifyType {
    NOTIFY_H_JS = 1,         // a page call whose result is not wanted
    NOTIFY_S_JS = 2,         // a c_addcomm call whose return value is the page's next message
    NOTIFY_TUNVO_HTTP = 3,   // a request to the local service
    NOTIFY_SERVER_HTTP = 4,  // the package download
};

struct streamData {
    int type = 0;
    unsigned char digest[16] = {};
    CString fileName;
    FILE* fp = nullptr;  // the package file while a type-4 stream is written
};

// The four records, shared by every instance of the process, and the pointers handed to the browser.
extern streamData h_js, s_js, tunvo_http, server_http;
extern streamData* const g_h_js;
extern streamData* const g_s_js;
extern streamData* const g_tunvo_http;
extern streamData* const g_server_http;

// Resets a record: no file name, no file (an open one is not closed), the type, a zero digest.
void initNotifyData(streamData* record, int type);
// Forgets the file name and closes an open file; keeps the type and digest; deletes no file.
void destroyNotifyData(streamData* record);

#endif
