// Instance creation, its parameters and its one action; teardown.
#include "PluginInstance.h"

#include <climits>
#include <cstring>
#include <new>
#include <unistd.h>

#include "BrowserCalls.h"
#include "NotifyData.h"
#include "PluginInfo.h"
#include "PluginLog.h"
#include "Provisioning.h"
#include "ServiceChannel.h"

int64_t g_seq = 0;
CString g_password;
CString g_installationMethod;

NPError NS_PluginInitialize() {
    PluginOpenLog();
    PluginWriteLog(4, "[NS_PluginInitialize]\n");
    return NPERR_NO_ERROR;
}

NPError NS_PluginShutdown() {
    PluginWriteLog(4, "[NS_PluginShutdown]\n");
    g_password.SecureEmpty();  // an installation that never finished leaves nothing behind
    return static_cast<NPError>(PluginCloseLog());
}

NPError NS_PluginGetValue(NPPVariable variable, void* value) {
    if (value == nullptr) return NPERR_INVALID_PARAM;
    switch (variable) {
        case NPPVpluginNameString:
            *static_cast<const char**>(value) = PLUGIN_NAME;
            return NPERR_NO_ERROR;
        case NPPVpluginDescriptionString:
            *static_cast<const char**>(value) = PLUGIN_DESCRIPTION;
            return NPERR_NO_ERROR;
        default:
            return NPERR_INVALID_PARAM;
    }
}

namespace {

// The six owned strings and the record itself.
void releaseRecord(struct_nsPluginInstance* record) {
    delete record->data;
    delete record->url;
    delete record->hostRootUrl;
    delete record->signature;
    delete record->tunvoUrl;
    delete record->tunvoSize;
    delete record;
}

// What the parameters ask for.
struct Parameters {
    ~Parameters() { password.SecureEmpty(); }
    CString password;
    CString installMethod;
    CString text;  // every other parameter as name=value&, for the service
    bool install = false;
    bool lastParam = false;
};

// What a parameter is for, by its name. Names are tested by substring, in a fixed order; the first that
// matches decides.
enum class Role { Password, InstallMethod, Install, Probe, LastParam, HostRootUrl, Signature, TunvoUrl, TunvoSize,
                  ForService };

Role roleOf(const char* name) {
    static const struct {
        const char* part;
        Role role;
    } kRoles[] = {{"_userpassword", Role::Password}, {"_installmethod", Role::InstallMethod},
                  {"_installvpn", Role::Install},    {"_probevpn", Role::Probe},
                  {"last_param", Role::LastParam},   {"hostrooturl", Role::HostRootUrl},
                  {"signature", Role::Signature},    {"tunvourl", Role::TunvoUrl},
                  {"tunvosize", Role::TunvoSize}};
    for (const auto& r : kRoles)
        if (strstr(name, r.part) != nullptr) return r.role;
    return Role::ForService;
}

// Reads the parameters into the record and `p`. The text for the service is sized first and made once, so
// that thousands of long parameters cost time in step with their length.
void readParameters(const nsPluginCreateData* create, struct_nsPluginInstance* record, Parameters& p) {
    int count = create->argc > 0 ? create->argc : 0;
    PluginWriteLog(4, "[NS_NewPluginInstance] Parsing input arguments, count='%d'\n", count);
    auto nameAt = [&](int i) { return create->argn != nullptr && create->argn[i] != nullptr ? create->argn[i] : ""; };
    auto valueAt = [&](int i) { return create->argv != nullptr && create->argv[i] != nullptr ? create->argv[i] : ""; };
    long long textLength = sizeof "browser_pid=" + 48;
    for (int i = 0; i < count; ++i)
        if (roleOf(nameAt(i)) == Role::ForService) textLength += strlen(nameAt(i)) + strlen(valueAt(i)) + 2;
    if (textLength < INT_MAX / 2) {
        p.text.GetBuffer(static_cast<int>(textLength));
        p.text.ReleaseBuffer(0);
    }
    for (int i = 0; i < count; ++i) {
        const char* name = nameAt(i);
        const char* value = valueAt(i);
        switch (roleOf(name)) {
            case Role::Password:
                p.password = value;
                PluginWriteLog(5, "[NS_NewPluginInstance] _userpassword='%s'\n", "**********");
                break;
            case Role::InstallMethod:
                p.installMethod = value;
                PluginWriteLog(5, "[NS_NewPluginInstance] _installmethod='%s'\n", value);
                break;
            case Role::Install: p.install = true; break;
            case Role::Probe: record->probeVpn = 1; break;
            case Role::LastParam: p.lastParam = true; break;
            case Role::HostRootUrl: *record->hostRootUrl = value; break;
            case Role::Signature: *record->signature = value; break;
            case Role::TunvoUrl: *record->tunvoUrl = value; break;
            case Role::TunvoSize: *record->tunvoSize = value; break;
            case Role::ForService:
                // Into the room made above; beyond it (a text past INT_MAX / 2) it grows geometrically.
                AppendGrowing(p.text, name);
                AppendGrowing(p.text, "=", 1);
                AppendGrowing(p.text, value);
                AppendGrowing(p.text, "&", 1);
                break;
        }
    }
}

enum class Outcome { Keep, Fail };

Outcome decide(struct_nsPluginInstance* record, Parameters& p) {
    if (!p.install && record->probeVpn == 0 && !p.lastParam) {
        PluginWriteLog(3, "[NS_NewPluginInstance] nothing to do\n");
        record->doNotTerminate = 1;
        return Outcome::Keep;
    }
    if (p.install) {
        record->doNotTerminate = 1;
        g_password.SecureEmpty();
        g_password = p.password;
        g_installationMethod = p.installMethod;
        PluginWriteLog(0, "[NS_NewPluginInstance] Download starting\n");
        int result = downloadTUNVO(record);
        if (result != 0) {
            PluginWriteLog(0, "[NS_NewPluginInstance] return error code of download=%d\n", result);
            return Outcome::Fail;
        }
        PluginWriteLog(0, "[NS_NewPluginInstance] Download triggered\n");
        return Outcome::Keep;
    }
    if (record->probeVpn == 1) {
        int result = NS_ProbeVpn(record);
        if (result != RESULT_PROBE_REQUESTED) PluginWriteLog(2, "[NS_NewPluginInstance] Error call of NS_probeVpn. '%d'\n", result);
        return Outcome::Keep;
    }
    PluginWriteLog(2, "[NS_NewPluginInstance] NS_LaunchVpn\n");
    int result = NS_LaunchVpn(record, p.text, 0);
    if (result == RESULT_SERVICE_STARTED || result == RESULT_ALREADY_RUNNING || result == RESULT_NOT_INSTALLED)
        return Outcome::Keep;
    PluginWriteLog(2, "[NS_NewPluginInstance] Error call of NS_LaunchVpn. '%d'\n", result);
    return Outcome::Fail;
}

}  // namespace

struct_nsPluginInstance* NS_NewPluginInstance(nsPluginCreateData* create) {
    PluginOpenLog();
    if (create == nullptr) {
        PluginWriteLog(0, "[NS_NewPluginInstance] ERROR! Incorrect input arguments. nsPluginCreateData cannot be NULL\n");
        return nullptr;
    }
    PluginWriteLog(0, "[NS_NewPluginInstance] User Agent:'%s'\n", NPN_UserAgent(create->instance));
    Parameters p;

    PluginWriteLog(3, "[NS_NewPluginInstance] Memory allocation: %d\n", static_cast<int>(sizeof(struct_nsPluginInstance)));
    struct_nsPluginInstance* record = new (std::nothrow) struct_nsPluginInstance{};
    if (record == nullptr) {
        PluginWriteLog(0, "[NS_NewPluginInstance] ERROR! Cannot allocate memory for plugin instance\n");
        return nullptr;
    }
    record->instance = create->instance;
    record->initialized = 0;
    record->data = new (std::nothrow) CString();
    record->url = new (std::nothrow) CString();
    record->doNotTerminate = 1;
    record->probeVpn = 0;
    record->hostRootUrl = new (std::nothrow) CString();
    record->signature = new (std::nothrow) CString();
    record->tunvoUrl = new (std::nothrow) CString();
    record->tunvoSize = new (std::nothrow) CString();
    record->received = 0;

    initNotifyData(g_h_js, NOTIFY_H_JS);
    initNotifyData(g_s_js, NOTIFY_S_JS);
    initNotifyData(g_tunvo_http, NOTIFY_TUNVO_HTTP);
    initNotifyData(g_server_http, NOTIFY_SERVER_HTTP);

    Outcome outcome = Outcome::Fail;
    if (record->data == nullptr || record->url == nullptr || record->hostRootUrl == nullptr ||
        record->signature == nullptr || record->tunvoUrl == nullptr || record->tunvoSize == nullptr) {
        PluginWriteLog(0, "[NS_NewPluginInstance] ERROR! cannot allocate memory for new string\n");
    } else {
        readParameters(create, record, p);
        PluginWriteLog(5, "[NS_NewPluginInstance] %d. hosturl=%s, tunvoURL=%s. tunvosize=%s\n", create->argc,
                       static_cast<const char*>(*record->hostRootUrl), static_cast<const char*>(*record->tunvoUrl),
                       static_cast<const char*>(*record->tunvoSize));
        char pid[48] = {};
        snprintf(pid, sizeof pid, "%d&", static_cast<int>(getpid()));
        p.text += "browser_pid=";
        p.text += pid;
        PluginWriteLog(0, "[NS_NewPluginInstance] vpnA:='%s'\n", static_cast<const char*>(p.text));
        PluginWriteLog(0, "[NS_NewPluginInstance] install='%d' plugin->probeVpn='%d' _last_param='%d'\n",
                       p.install ? 1 : 0, static_cast<int>(record->probeVpn), p.lastParam ? 1 : 0);
        outcome = decide(record, p);
    }
    PluginWriteLog(2, "[NS_NewPluginInstance] Done\n");
    if (outcome == Outcome::Fail) {
        releaseRecord(record);
        return nullptr;
    }
    return record;
}

NPError NS_DestroyPluginInstance(struct_nsPluginInstance* record) {
    PluginWriteLog(4, "[NS_DestroyPluginInstance] doNotTerminate = %d\n",
                   record != nullptr ? static_cast<int>(record->doNotTerminate) : 1);
    if (record != nullptr) {
        if (record->doNotTerminate == 0) LaunchVPN(*record->data, 1);
        releaseRecord(record);
        destroyNotifyData(g_h_js);
        destroyNotifyData(g_s_js);
        destroyNotifyData(g_tunvo_http);
        destroyNotifyData(g_server_http);
    }
    return static_cast<NPError>(PluginCloseLog());
}

int PluginInstance_init(struct_nsPluginInstance* record, NPWindow* window) {
    PluginWriteLog(4, "[PluginInstance_init]\n");
    if (record == nullptr || window == nullptr) {
        PluginWriteLog(0, "[PluginInstance_init] ERROR! Invalid input arguments, nsPluginInstance or NPWindow cannot be NULL\n");
        return 0;
    }
    record->window = window;
    record->initialized = 1;
    return 1;
}

void PluginInstance_shut(struct_nsPluginInstance* record) {
    PluginWriteLog(4, "[PluginInstance_shut]\n");
    if (record == nullptr) return;
    record->window = nullptr;
    record->initialized = 0;
}

int PluginInstance_isInitialized(struct_nsPluginInstance* record) {
    PluginWriteLog(4, "[PluginInstance_isInitialized]\n");
    if (record == nullptr) {
        PluginWriteLog(0, "[PluginInstance_isInitialized] ERROR! Invalid input arguments, nsPluginInstance cannot be NULL\n");
        return 0;
    }
    PluginWriteLog(4, "[PluginInstance_isInitialized] Initialized=%d\n", static_cast<int>(record->initialized));
    return static_cast<int>(record->initialized);
}

CString PluginInstance_getVersion(struct_nsPluginInstance* record) {
    PluginWriteLog(4, "[PluginInstance_getVersion]\n");
    return record == nullptr ? CString() : CString(NPN_UserAgent(record->instance));
}

NPError PluginInstance_SetWindow(struct_nsPluginInstance* record, NPWindow* window) {
    if (record != nullptr) record->window = window;
    return NPERR_NO_ERROR;
}

NPError PluginInstance_GetValue(struct_nsPluginInstance*, NPPVariable variable, void* value) {
    return NS_PluginGetValue(variable, value);
}

NPError PluginInstance_SetValue(struct_nsPluginInstance*, NPNVariable, void*) { return NPERR_NO_ERROR; }
void PluginInstance_StreamAsFile(struct_nsPluginInstance*, NPStream*, const char*) {}
void PluginInstance_Print(struct_nsPluginInstance*, NPPrint*) {}
