// Requests to the local VPN service: the probe, the relay of the page's messages, the direct query.
#include "ServiceChannel.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "BrowserCalls.h"
#include "ErrorLog"
#include "LogSettings"
#include "Provisioning.h"
#include "NotifyData.h"
#include "PluginLog.h"

namespace {
constexpr size_t kQuerySize = 1000;
const char kDirectQuery[] = "GET /vpn.php?INFO HTTP/1.1\r\nHOST: 127.0.0.1:44444\r\nAccept: */*\r\n\r\n";

void setLogging(int level) {
    if (errorLog != nullptr) errorLog->SetLogLevel(level);
    ULogSettings::setLogLevel(static_cast<unsigned int>(level), 0);
}
}  // namespace

CString directReplyBody(const char* reply) {
    const char* body = reply != nullptr ? strstr(reply, "\r\n\r\n") : nullptr;
    return body != nullptr ? CString(body + 4) : CString();
}

int NS_ProbeVpn(struct_nsPluginInstance* record) {
    PluginWriteLog(2, "[NS_ProbeVpn] Checking tunvo\n");
    *record->url = TUNVO_SERVICE_URL;
    *record->url += "?INFO";
    PluginWriteLog(4, "[NS_ProbeVpn] Call Init url='%s'\n", static_cast<const char*>(*record->url));
    NPError error = NPN_GetURLNotify(record->instance, *record->url, nullptr, g_tunvo_http);
    if (error == NPERR_NO_ERROR) return RESULT_PROBE_REQUESTED;
    PluginWriteLog(0, "[NS_ProbeVpn] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                   static_cast<const char*>(*record->url), error);
    return RESULT_BROWSER_REFUSED;
}

void sendToTunvo(struct_nsPluginInstance* record, const char* completedUrl) {
    if (record->probeVpn == 1) {
        PluginWriteLog(2, "[sendToTunvo] It's probeVpn responce. Terminate work\n");
        return;
    }
    if (record->doNotTerminate != 0) {
        PluginWriteLog(2, "[sendToTunvo] Skip browser message!\n");
        return;
    }
    if (completedUrl != nullptr && strstr(completedUrl, "LOGGING_DISABLE") != nullptr) setLogging(31);
    if (completedUrl != nullptr && strstr(completedUrl, "LOGGING_ENABLE") != nullptr) setLogging(63);

    *record->url = TUNVO_SERVICE_URL;
    *record->url += "?";
    if (record->data->IsEmpty()) *record->data = "INFO";
    *record->url += *record->data;
    char sequence[48] = {};
    snprintf(sequence, sizeof sequence, "&z=%ld", static_cast<long>(g_seq));
    ++g_seq;
    *record->url += sequence;

    PluginWriteLog(2, "[sendToTunvo] call GetURLNotify, buf='%s'\n", static_cast<const char*>(*record->url));
    NPError error = NPN_GetURLNotify(record->instance, *record->url, nullptr, g_tunvo_http);
    if (error != NPERR_NO_ERROR)
        PluginWriteLog(0, "[sendToTunvo] ERROR! cannot call GetURL. url='%s', errorcode='%d'\n",
                       static_cast<const char*>(*record->url), error);
}

int GetDataFromTunvo(struct_nsPluginInstance* record) {
    // The request fills the first bytes of a zeroed 1000-byte buffer; one byte more holds the
    // terminator after a full 1000-byte reply.
    char buffer[kQuerySize + 1] = {};
    memcpy(buffer, kDirectQuery, sizeof kDirectQuery - 1);
    PluginWriteLog(4, "[GetDataFromTunvo]\n");

    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        PluginWriteLog(4, "[GetDataFromTunvo] socket() failed=%s\n", strerror(errno));
        return 0;
    }
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(TUNVO_SERVICE_PORT);
    inet_pton(AF_INET, TUNVO_SERVICE_HOST, &address.sin_addr);
    int result = 0;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        PluginWriteLog(4, "[GetDataFromTunvo] connect() failed=%s\n", strerror(errno));
    } else if (write(fd, buffer, kQuerySize) < 1) {
        PluginWriteLog(4, "[GetDataFromTunvo] write() failed=%s\n", strerror(errno));
    } else {
        ssize_t n = read(fd, buffer, kQuerySize);
        if (n <= 0) {
            PluginWriteLog(4, "[GetDataFromTunvo] read() failed=%s\n", strerror(errno));
        } else {
            buffer[n] = '\0';
            PluginWriteLog(4, "[GetDataFromTunvo] got reply: %s\n", buffer);
            *record->data = directReplyBody(buffer);
            result = 1;
        }
    }
    close(fd);  // closed on every way out: a failed query must not leak the descriptor
    return result;
}
