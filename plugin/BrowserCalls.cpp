// NPN_ wrappers: each calls the browser's entry saved by NP_Initialize. Calls that need a newer browser
// than the table declares answer with an error instead of calling; a browser entry left NULL answers
// NPERR_GENERIC_ERROR (or nothing) instead of crashing.
#include "BrowserCalls.h"

#include "PluginInfo.h"

NPNetscapeFuncs NPNFuncs;

namespace {
int browserMinor() { return NPNFuncs.version & 0xFF; }
}  // namespace

NPError NPN_GetURL(NPP instance, const char* url, const char* target) {
    return NPNFuncs.geturl != nullptr ? NPNFuncs.geturl(instance, url, target) : NPERR_GENERIC_ERROR;
}

NPError NPN_GetURLNotify(NPP instance, const char* url, const char* target, void* notifyData) {
    if (browserMinor() < NPVERS_HAS_NOTIFICATION) return NPERR_INCOMPATIBLE_VERSION_ERROR;
    return NPNFuncs.geturlnotify != nullptr ? NPNFuncs.geturlnotify(instance, url, target, notifyData)
                                            : NPERR_GENERIC_ERROR;
}

NPError NPN_PostURL(NPP instance, const char* url, const char* target, uint32_t len, const char* buf, NPBool file) {
    return NPNFuncs.posturl != nullptr ? NPNFuncs.posturl(instance, url, target, len, buf, file) : NPERR_GENERIC_ERROR;
}

NPError NPN_PostURLNotify(NPP instance, const char* url, const char* target, uint32_t len, const char* buf,
                          NPBool file, void* notifyData) {
    if (browserMinor() < NPVERS_HAS_NOTIFICATION) return NPERR_INCOMPATIBLE_VERSION_ERROR;
    return NPNFuncs.posturlnotify != nullptr
               ? NPNFuncs.posturlnotify(instance, url, target, len, buf, file, notifyData)
               : NPERR_GENERIC_ERROR;
}

NPError NPN_RequestRead(NPStream* stream, NPByteRange* rangeList) {
    return NPNFuncs.requestread != nullptr ? NPNFuncs.requestread(stream, rangeList) : NPERR_GENERIC_ERROR;
}

NPError NPN_NewStream(NPP instance, NPMIMEType type, const char* target, NPStream** stream) {
    if (browserMinor() < NPVERS_HAS_STREAMOUTPUT) return NPERR_INCOMPATIBLE_VERSION_ERROR;
    return NPNFuncs.newstream != nullptr ? NPNFuncs.newstream(instance, type, target, stream) : NPERR_GENERIC_ERROR;
}

int32_t NPN_Write(NPP instance, NPStream* stream, int32_t len, void* buffer) {
    if (browserMinor() < NPVERS_HAS_STREAMOUTPUT) return -1;
    return NPNFuncs.write != nullptr ? NPNFuncs.write(instance, stream, len, buffer) : -1;
}

NPError NPN_DestroyStream(NPP instance, NPStream* stream, NPReason reason) {
    if (browserMinor() < NPVERS_HAS_STREAMOUTPUT) return NPERR_INCOMPATIBLE_VERSION_ERROR;
    return NPNFuncs.destroystream != nullptr ? NPNFuncs.destroystream(instance, stream, reason) : NPERR_GENERIC_ERROR;
}

void NPN_Status(NPP instance, const char* message) {
    if (NPNFuncs.status != nullptr) NPNFuncs.status(instance, message);
}

const char* NPN_UserAgent(NPP instance) { return NPNFuncs.uagent != nullptr ? NPNFuncs.uagent(instance) : nullptr; }

void* NPN_MemAlloc(uint32_t size) { return NPNFuncs.memalloc != nullptr ? NPNFuncs.memalloc(size) : nullptr; }

void NPN_MemFree(void* ptr) {
    if (NPNFuncs.memfree != nullptr) NPNFuncs.memfree(ptr);
}

uint32_t NPN_MemFlush(uint32_t size) { return NPNFuncs.memflush != nullptr ? NPNFuncs.memflush(size) : 0; }

void NPN_ReloadPlugins(NPBool reloadPages) {
    if (NPNFuncs.reloadplugins != nullptr) NPNFuncs.reloadplugins(reloadPages);
}

NPError NPN_GetValue(NPP instance, NPNVariable variable, void* value) {
    return NPNFuncs.getvalue != nullptr ? NPNFuncs.getvalue(instance, variable, value) : NPERR_GENERIC_ERROR;
}

NPError NPN_SetValue(NPP instance, NPPVariable variable, void* value) {
    return NPNFuncs.setvalue != nullptr ? NPNFuncs.setvalue(instance, variable, value) : NPERR_GENERIC_ERROR;
}

void NPN_InvalidateRect(NPP instance, NPRect* rect) {
    if (NPNFuncs.invalidaterect != nullptr) NPNFuncs.invalidaterect(instance, rect);
}

void NPN_InvalidateRegion(NPP instance, NPRegion region) {
    if (NPNFuncs.invalidateregion != nullptr) NPNFuncs.invalidateregion(instance, region);
}

void NPN_ForceRedraw(NPP instance) {
    if (NPNFuncs.forceredraw != nullptr) NPNFuncs.forceredraw(instance);
}

void NPN_Version(int* pluginMajor, int* pluginMinor, int* browserMajor, int* browserMinor) {
    *pluginMajor = PLUGIN_API_MAJOR;
    *pluginMinor = PLUGIN_API_MINOR;
    *browserMajor = NPNFuncs.version >> 8;
    *browserMinor = NPNFuncs.version & 0xFF;
}
