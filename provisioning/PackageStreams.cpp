// The browser's stream callbacks: reply bodies into the instance's `data`, the client package into a
// temporary file hashed as it arrives, and the download's page calls.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "BrowserCalls.h"
#include "PageBridge.h"
#include "PluginLog.h"
#include "Provisioning.h"

namespace {

constexpr int32_t kChunkSize = 64000;

bool acceptedPackageType(const char* type) {
    static const char* const accepted[] = {"application/x-tar", "text/plain", "application/vnd.apple.installer+xml"};
    for (const char* a : accepted)
        if (type != nullptr && strcmp(type, a) == 0) return true;
    return false;
}

// Makes a new package file in the system's temporary folder, exclusively and owner-only (mode 0600; an
// existing name or link is never followed), and puts its name in `name`. Returns its descriptor, or -1
// with errno set when no file could be made.
int makePackageFile(CString& name) {
    char path[] = P_tmpdir "/fileXXXXXX";
    int fd = mkostemp(path, O_CLOEXEC);
    if (fd >= 0) name = path;
    return fd;
}

streamData* requestOf(NPStream* stream) { return stream != nullptr ? static_cast<streamData*>(stream->notifyData) : nullptr; }
const char* urlOf(NPStream* stream) { return stream != nullptr && stream->url != nullptr ? stream->url : ""; }
unsigned int idOf(NPStream* stream) { return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(stream)); }

}  // namespace

int downloadTUNVO(struct_nsPluginInstance* record) {
    PluginWriteLog(1, "downloadTUNVO: downloading tunvo now\n");
    CString packageUrl = *record->hostRootUrl + *record->tunvoUrl;
    CString call = CString(JS_DOWNLOAD_START) + *record->tunvoSize + ")";
    PluginWriteLog(3, "downloadTUNVO: URL=%s. and notifyURL=%s\n", static_cast<const char*>(packageUrl),
                   static_cast<const char*>(call));
    int result = 0;
    NPError error = NPN_GetURLNotify(record->instance, call, nullptr, g_h_js);
    if (error != NPERR_NO_ERROR) {
        PluginWriteLog(4, "downloadTUNVO download notify failed. URL=%s,Error=%d", JS_DOWNLOAD_START, error);
        result = -1;
    }
    error = NPN_GetURLNotify(record->instance, packageUrl, nullptr, g_server_http);
    if (error != NPERR_NO_ERROR) {
        PluginWriteLog(4, "downloadTUNVO download failed. URL=%s,Error=%d", static_cast<const char*>(packageUrl), error);
        result = -1;
    }
    return result;
}

void notifyProgress(struct_nsPluginInstance* record) {
    char call[96];
    snprintf(call, sizeof call, "%s%d%s", JS_DOWNLOAD_PROGRESS, static_cast<int>(record->received), ")");
    PluginWriteLog(4, "[notifyProgress] progress URL=%s,", call);
    NPError error = NPN_GetURLNotify(record->instance, call, nullptr, g_h_js);
    if (error != NPERR_NO_ERROR) PluginWriteLog(4, "[notifyProgress] progress notify failed. URL=%s,Error=%d", call, error);
}

NPError PluginInstance_NewStream(struct_nsPluginInstance* record, NPMIMEType type, NPStream* stream, NPBool,
                                 uint16_t* stype) {
    PluginWriteLog(4, "[PluginInstance_NewStream] stream=0x%x, url='%s', mime-type=%s\n", idOf(stream), urlOf(stream),
                   type);
    streamData* request = requestOf(stream);
    if (request == nullptr) {
        PluginWriteLog(0, "[PluginInstance_NewStream] No notifyData\n");
    } else {
        PluginWriteLog(3, "PluginInstance_NewStream: notify Type(=%d)\n", request->type);
        switch (request->type) {
            case NOTIFY_H_JS: case NOTIFY_S_JS: case NOTIFY_TUNVO_HTTP:
                record->data->Empty();
                break;
            case NOTIFY_SERVER_HTTP: {
                if (!acceptedPackageType(type)) {
                    // The format's number has always been fed the type text's address; the line stays as it was.
                    PluginWriteLog(3, "[PluginInstance_NewStream]  Received response with wrong mime type(=%d)\n",
                                   static_cast<int>(reinterpret_cast<intptr_t>(type)));
                    return NPERR_GENERIC_ERROR;
                }
                record->received = 0;
                notifyProgress(record);
                CString name;
                int fd = makePackageFile(name);
                if (fd < 0) {
                    PluginWriteLog(3, "[PluginInstance_NewStream]  Cannot create tmp name error=%d\n", errno);
                    return NPERR_GENERIC_ERROR;
                }
                PluginWriteLog(4, "[PluginInstance_NewStream]  New tmp file name=%s\n", static_cast<const char*>(name));
                request->fileName = name;
                request->fp = fdopen(fd, "wb");
                if (request->fp == nullptr) {
                    PluginWriteLog(4, "[PluginInstance_NewStream]  Cannot create file(%s), err=%d\n",
                                   static_cast<const char*>(name), errno);
                    close(fd);
                    return NPERR_GENERIC_ERROR;
                }
                record->md5.Init();
                break;
            }
            default:
                break;
        }
        PluginWriteLog(3, "[PluginInstance_NewStream]  Done type =%d\n", request->type);
    }
    if (stype != nullptr) *stype = NP_NORMAL;
    return NPERR_NO_ERROR;
}

int32_t PluginInstance_WriteReady(struct_nsPluginInstance*, NPStream* stream) {
    PluginWriteLog(4, "[PluginInstance_WriteReady] stream=0x%x, url='%s'\n", idOf(stream), urlOf(stream));
    return kChunkSize;
}

int32_t PluginInstance_Write(struct_nsPluginInstance* record, NPStream* stream, int32_t, int32_t len, void* buffer) {
    PluginWriteLog(4, "[PluginInstance_Write] stream=0x%x, url='%s'\n", idOf(stream), urlOf(stream));
    streamData* request = requestOf(stream);
    if (request == nullptr) {
        PluginWriteLog(0, "[PluginInstance_NewStream] No notifyData\n");
        return len;
    }
    PluginWriteLog(4, "[PluginInstance_Write] notify type=%d\n", request->type);
    if (len <= 0 || buffer == nullptr) return len;  // nothing to take
    switch (request->type) {
        case NOTIFY_S_JS: case NOTIFY_TUNVO_HTTP:
            AppendGrowing(*record->data, static_cast<const char*>(buffer), len);  // linear in the reply
            break;
        case NOTIFY_SERVER_HTTP: {
            size_t written = request->fp != nullptr ? fwrite(buffer, 1, static_cast<size_t>(len), request->fp) : 0;
            if (written < static_cast<size_t>(len))
                PluginWriteLog(4, "PluginInstance_Write: Writing to file failed count=%d,len=%d\n",
                               static_cast<int>(written), len);
            record->md5.Update(static_cast<unsigned char*>(buffer), len);
            record->received += static_cast<uint32_t>(len);
            notifyProgress(record);
            break;
        }
        default:
            PluginWriteLog(0, "[PluginInstance_Write] Unhandleed type = %d\n", request->type);
            break;
    }
    return len;
}

NPError PluginInstance_DestroyStream(struct_nsPluginInstance* record, NPStream* stream, NPReason reason) {
    PluginWriteLog(4, "[PluginInstance_DestroyStream] stream=0x%x, url='%s', reason=%d \n", idOf(stream), urlOf(stream),
                   reason);
    if (reason == NPRES_NETWORK_ERR) {
        PluginWriteLog(0, "PluginInstance_DestroyStream: Network problem\n");
        return NPERR_GENERIC_ERROR;
    }
    streamData* request = requestOf(stream);
    if (request == nullptr || request->type != NOTIFY_SERVER_HTTP) return NPERR_NO_ERROR;
    PluginWriteLog(0, "PluginInstance_DestroyStream: Received complete file\n");
    if (request->fp != nullptr) {
        fclose(request->fp);
        request->fp = nullptr;
    }
    record->md5.Final(request->digest);
    record->received = 0;
    NPError error = NPN_GetURLNotify(record->instance, JS_DOWNLOAD_DONE, nullptr, g_h_js);
    if (error != NPERR_NO_ERROR)
        PluginWriteLog(4, "[PluginInstance_DestroyStream] DL done notify failed. URL=%s,Error=%d", JS_DOWNLOAD_DONE, error);
    return error;
}
