// The browser and plug-in function tables and the exported entry points, as on x86_64 Linux.
#ifndef PASSWAY_NPAPI_NPAPITABLES_H
#define PASSWAY_NPAPI_NPAPITABLES_H

#include "Npapi.h"

extern "C" {

// ---- The browser's functions --------------------------------------------------------------
typedef NPError (*NPN_GetURLProcPtr)(NPP instance, const char* url, const char* window);
typedef NPError (*NPN_PostURLProcPtr)(NPP instance, const char* url, const char* window, uint32_t len,
                                      const char* buf, NPBool file);
typedef NPError (*NPN_RequestReadProcPtr)(NPStream* stream, NPByteRange* rangeList);
typedef NPError (*NPN_NewStreamProcPtr)(NPP instance, NPMIMEType type, const char* window, NPStream** stream);
typedef int32_t (*NPN_WriteProcPtr)(NPP instance, NPStream* stream, int32_t len, void* buffer);
typedef NPError (*NPN_DestroyStreamProcPtr)(NPP instance, NPStream* stream, NPReason reason);
typedef void (*NPN_StatusProcPtr)(NPP instance, const char* message);
typedef const char* (*NPN_UserAgentProcPtr)(NPP instance);
typedef void* (*NPN_MemAllocProcPtr)(uint32_t size);
typedef void (*NPN_MemFreeProcPtr)(void* ptr);
typedef uint32_t (*NPN_MemFlushProcPtr)(uint32_t size);
typedef void (*NPN_ReloadPluginsProcPtr)(NPBool reloadPages);
typedef void* (*NPN_GetJavaEnvProcPtr)(void);
typedef void* (*NPN_GetJavaPeerProcPtr)(NPP instance);
typedef NPError (*NPN_GetURLNotifyProcPtr)(NPP instance, const char* url, const char* window, void* notifyData);
typedef NPError (*NPN_PostURLNotifyProcPtr)(NPP instance, const char* url, const char* window, uint32_t len,
                                            const char* buf, NPBool file, void* notifyData);
typedef NPError (*NPN_GetValueProcPtr)(NPP instance, NPNVariable variable, void* ret_value);
typedef NPError (*NPN_SetValueProcPtr)(NPP instance, NPPVariable variable, void* value);
typedef void (*NPN_InvalidateRectProcPtr)(NPP instance, NPRect* rect);
typedef void (*NPN_InvalidateRegionProcPtr)(NPP instance, NPRegion region);
typedef void (*NPN_ForceRedrawProcPtr)(NPP instance);

// The first 23 fields of the browser's table: everything this plug-in may use. Browsers pass a larger
// table (472 bytes today); `size` says how much of it is there.
typedef struct _NPNetscapeFuncs {
    uint16_t size;
    uint16_t version;
    NPN_GetURLProcPtr geturl;
    NPN_PostURLProcPtr posturl;
    NPN_RequestReadProcPtr requestread;
    NPN_NewStreamProcPtr newstream;
    NPN_WriteProcPtr write;
    NPN_DestroyStreamProcPtr destroystream;
    NPN_StatusProcPtr status;
    NPN_UserAgentProcPtr uagent;
    NPN_MemAllocProcPtr memalloc;
    NPN_MemFreeProcPtr memfree;
    NPN_MemFlushProcPtr memflush;
    NPN_ReloadPluginsProcPtr reloadplugins;
    NPN_GetJavaEnvProcPtr getJavaEnv;
    NPN_GetJavaPeerProcPtr getJavaPeer;
    NPN_GetURLNotifyProcPtr geturlnotify;
    NPN_PostURLNotifyProcPtr posturlnotify;
    NPN_GetValueProcPtr getvalue;
    NPN_SetValueProcPtr setvalue;
    NPN_InvalidateRectProcPtr invalidaterect;
    NPN_InvalidateRegionProcPtr invalidateregion;
    NPN_ForceRedrawProcPtr forceredraw;
} NPNetscapeFuncs;

// ---- The plug-in's functions --------------------------------------------------------------
typedef NPError (*NPP_NewProcPtr)(NPMIMEType pluginType, NPP instance, uint16_t mode, int16_t argc, char* argn[],
                                  char* argv[], NPSavedData* saved);
typedef NPError (*NPP_DestroyProcPtr)(NPP instance, NPSavedData** save);
typedef NPError (*NPP_SetWindowProcPtr)(NPP instance, NPWindow* window);
typedef NPError (*NPP_NewStreamProcPtr)(NPP instance, NPMIMEType type, NPStream* stream, NPBool seekable,
                                        uint16_t* stype);
typedef NPError (*NPP_DestroyStreamProcPtr)(NPP instance, NPStream* stream, NPReason reason);
typedef void (*NPP_StreamAsFileProcPtr)(NPP instance, NPStream* stream, const char* fname);
typedef int32_t (*NPP_WriteReadyProcPtr)(NPP instance, NPStream* stream);
typedef int32_t (*NPP_WriteProcPtr)(NPP instance, NPStream* stream, int32_t offset, int32_t len, void* buffer);
typedef void (*NPP_PrintProcPtr)(NPP instance, NPPrint* platformPrint);
typedef int16_t (*NPP_HandleEventProcPtr)(NPP instance, void* event);
typedef void (*NPP_URLNotifyProcPtr)(NPP instance, const char* url, NPReason reason, void* notifyData);
typedef NPError (*NPP_GetValueProcPtr)(NPP instance, NPPVariable variable, void* ret_value);
typedef NPError (*NPP_SetValueProcPtr)(NPP instance, NPNVariable variable, void* value);

// The classic 16 fields of the plug-in table (through setvalue, 120 bytes); browsers pass 168 today.
// Note the order: asfile comes before writeready and write.
typedef struct _NPPluginFuncs {
    uint16_t size;
    uint16_t version;
    NPP_NewProcPtr newp;
    NPP_DestroyProcPtr destroy;
    NPP_SetWindowProcPtr setwindow;
    NPP_NewStreamProcPtr newstream;
    NPP_DestroyStreamProcPtr destroystream;
    NPP_StreamAsFileProcPtr asfile;
    NPP_WriteReadyProcPtr writeready;
    NPP_WriteProcPtr write;
    NPP_PrintProcPtr print;
    NPP_HandleEventProcPtr event;
    NPP_URLNotifyProcPtr urlnotify;
    void* javaClass;  // data, not a function
    NPP_GetValueProcPtr getvalue;
    NPP_SetValueProcPtr setvalue;
} NPPluginFuncs;

// ---- Exported entry points ----------------------------------------------------------------
typedef NPError (*NP_InitializeFunc)(NPNetscapeFuncs* browserFuncs, NPPluginFuncs* pluginFuncs);
typedef NPError (*NP_ShutdownFunc)(void);
typedef const char* (*NP_GetMIMEDescriptionFunc)(void);
typedef NPError (*NP_GetValueFunc)(void* future, NPPVariable variable, void* value);

}  // extern "C"

// Where the tables end, by the published layout.
constexpr size_t kBrowserTableThroughForceRedraw = 176;
constexpr size_t kBrowserTableFullSize = 472;
constexpr size_t kPluginTableThroughSetValue = 120;
constexpr size_t kPluginTableFullSize = 168;

static_assert(offsetof(NPNetscapeFuncs, geturl) == 8, "browser table: first pointer after padding");
static_assert(offsetof(NPNetscapeFuncs, uagent) == 64 && offsetof(NPNetscapeFuncs, geturlnotify) == 120 &&
                  offsetof(NPNetscapeFuncs, setvalue) == 144,
              "browser table slots");
static_assert(sizeof(NPNetscapeFuncs) == kBrowserTableThroughForceRedraw, "browser table reaches force-redraw at 176");
static_assert(offsetof(NPPluginFuncs, newp) == 8 && offsetof(NPPluginFuncs, asfile) == 48 &&
                  offsetof(NPPluginFuncs, writeready) == 56 && offsetof(NPPluginFuncs, write) == 64 &&
                  offsetof(NPPluginFuncs, urlnotify) == 88 && offsetof(NPPluginFuncs, javaClass) == 96,
              "plug-in table order: asfile before writeready");
static_assert(sizeof(NPPluginFuncs) == kPluginTableThroughSetValue, "plug-in table through setvalue is 120 bytes");

#endif
