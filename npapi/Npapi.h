// Our declarations of the standard NPAPI types and constants for x86_64 Linux, written as a host built
// with XP_UNIX and MOZ_X11 sees them. Sizes and offsets are checked below against the published ABI.
#ifndef PASSWAY_NPAPI_NPAPI_H
#define PASSWAY_NPAPI_NPAPI_H

#include <cstddef>
#include <cstdint>

extern "C" {

typedef unsigned char NPBool;
typedef int16_t NPError;
typedef int16_t NPReason;
typedef char* NPMIMEType;
typedef void* NPIdentifier;
typedef char NPUTF8;
typedef struct _XRegion* NPRegion;  // Xlib Region
typedef void* NPMenu;

typedef struct _NPP {
    void* pdata;  // the plug-in's record
    void* ndata;  // the browser's
} NPP_t;
typedef NPP_t* NPP;

typedef struct _NPStream {
    void* pdata;
    void* ndata;
    const char* url;
    uint32_t end;
    uint32_t lastmodified;
    void* notifyData;
    const char* headers;
} NPStream;

typedef struct _NPByteRange {
    int32_t offset;
    uint32_t length;
    struct _NPByteRange* next;
} NPByteRange;

typedef struct _NPSavedData {
    int32_t len;
    void* buf;
} NPSavedData;

typedef struct _NPRect {
    uint16_t top;
    uint16_t left;
    uint16_t bottom;
    uint16_t right;
} NPRect;

typedef struct _NPSize {
    int32_t width;
    int32_t height;
} NPSize;

typedef enum { NPWindowTypeWindow = 1, NPWindowTypeDrawable } NPWindowType;

typedef struct _NPWindow {
    void* window;
    int32_t x;
    int32_t y;
    uint32_t width;
    uint32_t height;
    NPRect clipRect;
    void* ws_info;  // NPSetWindowCallbackStruct* on X11
    NPWindowType type;
} NPWindow;

typedef struct _NPPrint {
    uint16_t mode;
    union {
        struct {
            NPBool pluginPrinted;
            NPBool printOne;
            void* platformPrint;
        } fullPrint;
        struct {
            NPWindow window;
            void* platformPrint;
        } embedPrint;
    } print;
} NPPrint;

typedef enum {
    NPPVpluginNameString = 1,
    NPPVpluginDescriptionString,
    NPPVpluginWindowBool,
    NPPVpluginTransparentBool,
    NPPVjavaClass,
    NPPVpluginWindowSize,
    NPPVpluginTimerInterval,
    NPPVpluginScriptableInstance = (10 | 0x10000000),
    NPPVpluginScriptableIID = 11,
    NPPVjavascriptPushCallerBool = 12,
    NPPVpluginKeepLibraryInMemory = 13,
    NPPVpluginNeedsXEmbed = 14,
    NPPVpluginScriptableNPObject = 15,
    NPPVformValue = 16,
    NPPVpluginDrawingModel = 1000
} NPPVariable;

typedef enum {
    NPNVxDisplay = 1,
    NPNVxtAppContext,
    NPNVnetscapeWindow,
    NPNVjavascriptEnabledBool,
    NPNVasdEnabledBool,
    NPNVisOfflineBool,
    NPNVserviceManager = (10 | 0x10000000),
    NPNVDOMElement = (11 | 0x10000000),
    NPNVDOMWindow = (12 | 0x10000000),
    NPNVToolkit = (13 | 0x10000000),
    NPNVSupportsXEmbedBool = 14,
    NPNVWindowNPObject = 15,
    NPNVPluginElementNPObject = 16,
    NPNVSupportsWindowless = 17
} NPNVariable;

}  // extern "C"

// Error codes.
constexpr NPError NPERR_NO_ERROR = 0;
constexpr NPError NPERR_GENERIC_ERROR = 1;
constexpr NPError NPERR_INVALID_INSTANCE_ERROR = 2;
constexpr NPError NPERR_INVALID_FUNCTABLE_ERROR = 3;
constexpr NPError NPERR_MODULE_LOAD_FAILED_ERROR = 4;
constexpr NPError NPERR_OUT_OF_MEMORY_ERROR = 5;
constexpr NPError NPERR_INVALID_PLUGIN_ERROR = 6;
constexpr NPError NPERR_INVALID_PLUGIN_DIR_ERROR = 7;
constexpr NPError NPERR_INCOMPATIBLE_VERSION_ERROR = 8;
constexpr NPError NPERR_INVALID_PARAM = 9;
constexpr NPError NPERR_INVALID_URL = 10;
constexpr NPError NPERR_FILE_NOT_FOUND = 11;
constexpr NPError NPERR_NO_DATA = 12;
constexpr NPError NPERR_STREAM_NOT_SEEKABLE = 13;

// Reasons a stream or URL request ended.
constexpr NPReason NPRES_DONE = 0;
constexpr NPReason NPRES_NETWORK_ERR = 1;
constexpr NPReason NPRES_USER_BREAK = 2;

// Modes of NPP_New, stream types of NPP_NewStream.
constexpr uint16_t NP_EMBED = 1;
constexpr uint16_t NP_FULL = 2;
constexpr uint16_t NP_NORMAL = 1;
constexpr uint16_t NP_SEEK = 2;
constexpr uint16_t NP_ASFILE = 3;
constexpr uint16_t NP_ASFILEONLY = 4;
constexpr int32_t NP_MAXREADY = 0x7FFFFFFF;

// Versions: (major << 8) + minor; features are compared with the browser table's minor byte.
constexpr int NP_VERSION_MAJOR = 0;
constexpr int NPVERS_HAS_STREAMOUTPUT = 8;
constexpr int NPVERS_HAS_NOTIFICATION = 9;

static_assert(sizeof(NPBool) == 1 && sizeof(NPError) == 2 && sizeof(NPReason) == 2, "scalar widths");
static_assert(sizeof(NPP_t) == 16 && offsetof(NPP_t, ndata) == 8, "NPP_t layout");
static_assert(sizeof(NPStream) == 48 && offsetof(NPStream, end) == 24 && offsetof(NPStream, notifyData) == 32 &&
                  offsetof(NPStream, headers) == 40,
              "NPStream layout");
static_assert(sizeof(NPWindow) == 48 && offsetof(NPWindow, clipRect) == 24 && offsetof(NPWindow, ws_info) == 32 &&
                  offsetof(NPWindow, type) == 40,
              "NPWindow layout (XP_UNIX)");
static_assert(sizeof(NPRect) == 8 && sizeof(NPSavedData) == 16 && offsetof(NPSavedData, buf) == 8, "small structs");
static_assert(sizeof(NPByteRange) == 16 && offsetof(NPByteRange, next) == 8, "NPByteRange layout");
static_assert(sizeof(NPPrint) == 64, "NPPrint layout");
static_assert(sizeof(NPPVariable) == 4 && sizeof(NPNVariable) == 4, "enums are int-sized");
static_assert(NPNVToolkit == 0x1000000D && NPPVpluginScriptableInstance == 0x1000000A, "GCC ABI mask");

#endif
