// The plug-in's calls into the browser, through the table saved by NP_Initialize.
#ifndef PASSWAY_INSTANCE_BROWSERCALLS_H
#define PASSWAY_INSTANCE_BROWSERCALLS_H

#include "NpapiTables.h"

extern NPNetscapeFuncs NPNFuncs;

NPError NPN_GetURL(NPP instance, const char* url, const char* target);
NPError NPN_GetURLNotify(NPP instance, const char* url, const char* target, void* notifyData);
NPError NPN_PostURL(NPP instance, const char* url, const char* target, uint32_t len, const char* buf, NPBool file);
NPError NPN_PostURLNotify(NPP instance, const char* url, const char* target, uint32_t len, const char* buf,
                          NPBool file, void* notifyData);
NPError NPN_RequestRead(NPStream* stream, NPByteRange* rangeList);
NPError NPN_NewStream(NPP instance, NPMIMEType type, const char* target, NPStream** stream);
int32_t NPN_Write(NPP instance, NPStream* stream, int32_t len, void* buffer);
NPError NPN_DestroyStream(NPP instance, NPStream* stream, NPReason reason);
void NPN_Status(NPP instance, const char* message);
const char* NPN_UserAgent(NPP instance);
void* NPN_MemAlloc(uint32_t size);
void NPN_MemFree(void* ptr);
uint32_t NPN_MemFlush(uint32_t size);
void NPN_ReloadPlugins(NPBool reloadPages);
NPError NPN_GetValue(NPP instance, NPNVariable variable, void* value);
NPError NPN_SetValue(NPP instance, NPPVariable variable, void* value);
void NPN_InvalidateRect(NPP instance, NPRect* rect);
void NPN_InvalidateRegion(NPP instance, NPRegion region);
void NPN_ForceRedraw(NPP instance);
void NPN_Version(int* pluginMajor, int* pluginMinor, int* browserMajor, int* browserMinor);

#endif
