// The four request records.
#include "NotifyData.h"

#include <cstring>

#include "PluginLog.h"

streamData h_js, s_js, tunvo_http, server_http;
streamData* const g_h_js = &h_js;
streamData* const g_s_js = &s_js;
streamData* const g_tunvo_http = &tunvo_http;
streamData* const g_server_http = &server_http;

void initNotifyData(streamData* record, int type) {
    record->fileName = "";
    record->fp = nullptr;
    record->type = type;
    memset(record->digest, 0, sizeof record->digest);
}

void destroyNotifyData(streamData* record) {
    PluginWriteLog(3, "[destroyNotifyData] destroying notify data of type = %d\n", record->type);
    record->fileName.Empty();
    if (record->fp != nullptr) {
        fclose(record->fp);
        record->fp = nullptr;
    }
    PluginWriteLog(3, "[destroyNotifyData] Done destroying notify data of type = %d\n", record->type);
}
