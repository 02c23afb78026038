// What the browser sees: the four exported entry points, the two function tables, the NPP_ handlers.
// Every entry catches whatever the code below it throws: no exception ever reaches the browser.
#include <cstring>

#include "BrowserCalls.h"
#include "ChildProcess.h"
#include "PluginInfo.h"
#include "PluginInstance.h"
#include "PluginLog.h"
#include "Provisioning.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Runs `body`; any exception becomes `failure` (and a log line when the log can still take one). On the
// way in, children left to finish (an installer that could not be ended) are reaped once they have ended.
template <class T, class Body>
T guarded(const char* where, T failure, Body body) {
    try {
        reapLeftChildren();
        return body();
    } catch (...) {
        try {
            PluginWriteLog(0, "[%s] ERROR! unexpected exception\n", where);
        } catch (...) {
        }
        return failure;
    }
}

template <class Body>
void guardedVoid(const char* where, Body body) {
    guarded(where, 0, [&] {
        body();
        return 0;
    });
}

struct_nsPluginInstance* recordOf(NPP instance) { return static_cast<struct_nsPluginInstance*>(instance->pdata); }

NPError fillNetscapeFunctionTable(const NPNetscapeFuncs* browser) {
    if (browser == nullptr) return NPERR_INVALID_FUNCTABLE_ERROR;
    if ((browser->version >> 8) > NP_VERSION_MAJOR) return NPERR_INCOMPATIBLE_VERSION_ERROR;
    if (browser->size < kBrowserTableThroughForceRedraw) return NPERR_INVALID_FUNCTABLE_ERROR;
    NPNFuncs = NPNetscapeFuncs();
    NPNFuncs.size = browser->size;
    NPNFuncs.version = browser->version;
    NPNFuncs.geturl = browser->geturl;
    NPNFuncs.posturl = browser->posturl;
    NPNFuncs.requestread = browser->requestread;
    NPNFuncs.newstream = browser->newstream;
    NPNFuncs.write = browser->write;
    NPNFuncs.destroystream = browser->destroystream;
    NPNFuncs.status = browser->status;
    NPNFuncs.uagent = browser->uagent;
    NPNFuncs.memalloc = browser->memalloc;
    NPNFuncs.memfree = browser->memfree;
    NPNFuncs.memflush = browser->memflush;
    NPNFuncs.reloadplugins = browser->reloadplugins;
    NPNFuncs.geturlnotify = browser->geturlnotify;
    NPNFuncs.posturlnotify = browser->posturlnotify;
    NPNFuncs.getvalue = browser->getvalue;
    NPNFuncs.setvalue = browser->setvalue;
    NPNFuncs.invalidaterect = browser->invalidaterect;
    NPNFuncs.invalidateregion = browser->invalidateregion;
    NPNFuncs.forceredraw = browser->forceredraw;
    return NPERR_NO_ERROR;  // the two Java entries are not taken
}

// ---- NPP_ handlers ---------------------------------------------------------------------------

NPError NPP_New(NPMIMEType type, NPP instance, uint16_t mode, int16_t argc, char* argn[], char* argv[],
                NPSavedData* saved) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    return guarded("NPP_New", static_cast<NPError>(NPERR_OUT_OF_MEMORY_ERROR), [&]() -> NPError {
        nsPluginCreateData create = {instance, type, mode, argc, argn, argv, saved};
        struct_nsPluginInstance* record = NS_NewPluginInstance(&create);
        if (record == nullptr) return NPERR_OUT_OF_MEMORY_ERROR;
        record->instance = instance;
        NPN_SetValue(instance, NPPVpluginWindowBool, nullptr);  // windowless
        instance->pdata = record;
        return NPERR_NO_ERROR;
    });
}

NPError NPP_Destroy(NPP instance, NPSavedData**) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    struct_nsPluginInstance* record = recordOf(instance);
    if (record == nullptr) return NPERR_NO_ERROR;
    instance->pdata = nullptr;
    return guarded("NPP_Destroy", static_cast<NPError>(NPERR_NO_ERROR), [&] {
        PluginInstance_shut(record);
        NS_DestroyPluginInstance(record);
        return static_cast<NPError>(NPERR_NO_ERROR);
    });
}

NPError NPP_SetWindow(NPP instance, NPWindow* window) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    struct_nsPluginInstance* record = recordOf(instance);
    if (record == nullptr || window == nullptr) return NPERR_GENERIC_ERROR;
    return guarded("NPP_SetWindow", static_cast<NPError>(NPERR_GENERIC_ERROR), [&] {
        if (record->initialized == 0 && window->window != nullptr) {
            if (PluginInstance_init(record, window) == 0) {
                NS_DestroyPluginInstance(record);
                return static_cast<NPError>(NPERR_MODULE_LOAD_FAILED_ERROR);
            }
        }
        return PluginInstance_SetWindow(record, window);
    });
}

NPError NPP_NewStream(NPP instance, NPMIMEType type, NPStream* stream, NPBool seekable, uint16_t* stype) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    struct_nsPluginInstance* record = recordOf(instance);
    if (record == nullptr) return NPERR_GENERIC_ERROR;
    return guarded("NPP_NewStream", static_cast<NPError>(NPERR_GENERIC_ERROR),
                   [&] { return PluginInstance_NewStream(record, type, stream, seekable, stype); });
}

NPError NPP_DestroyStream(NPP instance, NPStream* stream, NPReason reason) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    struct_nsPluginInstance* record = recordOf(instance);
    if (record == nullptr) return NPERR_GENERIC_ERROR;
    return guarded("NPP_DestroyStream", static_cast<NPError>(NPERR_GENERIC_ERROR),
                   [&] { return PluginInstance_DestroyStream(record, stream, reason); });
}

int32_t NPP_WriteReady(NPP instance, NPStream* stream) {
    constexpr int32_t kAnything = 268435455;
    if (instance == nullptr || recordOf(instance) == nullptr) return kAnything;
    return guarded("NPP_WriteReady", kAnything, [&] { return PluginInstance_WriteReady(recordOf(instance), stream); });
}

int32_t NPP_Write(NPP instance, NPStream* stream, int32_t offset, int32_t len, void* buffer) {
    if (instance == nullptr || recordOf(instance) == nullptr) return len;
    return guarded("NPP_Write", len, [&] { return PluginInstance_Write(recordOf(instance), stream, offset, len, buffer); });
}

void NPP_StreamAsFile(NPP instance, NPStream* stream, const char* fileName) {
    if (instance == nullptr || recordOf(instance) == nullptr) return;
    PluginInstance_StreamAsFile(recordOf(instance), stream, fileName);
}

void NPP_Print(NPP instance, NPPrint* print) {
    if (instance == nullptr || recordOf(instance) == nullptr) return;
    PluginInstance_Print(recordOf(instance), print);
}

int16_t NPP_HandleEvent(NPP, void*) { return 0; }

void NPP_URLNotify(NPP instance, const char* url, NPReason reason, void* notifyData) {
    if (instance == nullptr || recordOf(instance) == nullptr) return;
    guardedVoid("NPP_URLNotify", [&] { PluginInstance_URLNotify(recordOf(instance), url, reason, notifyData); });
}

NPError NPP_GetValue(NPP instance, NPPVariable variable, void* value) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    if (recordOf(instance) == nullptr) return NPERR_GENERIC_ERROR;
    return PluginInstance_GetValue(recordOf(instance), variable, value);
}

NPError NPP_SetValue(NPP instance, NPNVariable variable, void* value) {
    if (instance == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    if (recordOf(instance) == nullptr) return NPERR_GENERIC_ERROR;
    return PluginInstance_SetValue(recordOf(instance), variable, value);
}

// Fills the plug-in table. A table too short to hold the entries through setvalue is refused rather
// than written past its end.
NPError fillPluginFunctionTable(NPPluginFuncs* table) {
    if (table == nullptr || table->size < kPluginTableThroughSetValue) return NPERR_INVALID_FUNCTABLE_ERROR;
    table->version = (PLUGIN_API_MAJOR << 8) | PLUGIN_API_MINOR;
    table->newp = NPP_New;
    table->destroy = NPP_Destroy;
    table->setwindow = NPP_SetWindow;
    table->newstream = NPP_NewStream;
    table->destroystream = NPP_DestroyStream;
    table->asfile = NPP_StreamAsFile;
    table->writeready = NPP_WriteReady;
    table->write = NPP_Write;
    table->print = NPP_Print;
    table->event = NPP_HandleEvent;
    table->urlnotify = NPP_URLNotify;
    table->getvalue = NPP_GetValue;
    table->setvalue = NPP_SetValue;
    return NPERR_NO_ERROR;
}

const char* NPP_GetMIMEDescription() { return PLUGIN_MIME_DESCRIPTION; }

}  // namespace

PLUGIN_EXPORT NPError NP_Initialize(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs) {
    NPError error = fillNetscapeFunctionTable(browserFuncs);
    if (error != NPERR_NO_ERROR) return error;
    error = fillPluginFunctionTable(pluginFuncs);
    if (error != NPERR_NO_ERROR) return error;
    return guarded("NP_Initialize", static_cast<NPError>(NPERR_GENERIC_ERROR), [] { return NS_PluginInitialize(); });
}

PLUGIN_EXPORT NPError NP_Shutdown(void) {
    guarded("NP_Shutdown", static_cast<NPError>(NPERR_NO_ERROR), [] { return NS_PluginShutdown(); });
    return NPERR_NO_ERROR;
}

PLUGIN_EXPORT const char* NP_GetMIMEDescription(void) { return NPP_GetMIMEDescription(); }

PLUGIN_EXPORT NPError NP_GetValue(void*, NPPVariable variable, void* value) { return NS_PluginGetValue(variable, value); }
