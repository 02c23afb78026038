// The browser's side of NPAPI, shared by passway-host and the tests' fake browser: loads a plug-in with
// dlopen, hands it a browser function table, creates and destroys its instances, and drives the streams
// of the URLs it asks for, call by call, as a browser does.
//
// The plug-in's calls into the browser reach the Handler given at construction. A Handler must not call
// back into the plug-in from inside such a call: it queues the request and carries it once the plug-in's
// own call has returned, as a browser does. One NpapiHost may exist at a time in a process (the plug-in's
// calls find it through a global).
#ifndef PASSWAY_HOST_NPAPIHOST_H
#define PASSWAY_HOST_NPAPIHOST_H

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NpapiTables.h"

class NpapiHost {
public:
    using Parameters = std::vector<std::pair<std::string, std::string>>;

    // What the embedding browser answers to the plug-in's calls.
    class Handler {
    public:
        virtual ~Handler() = default;
        // NPN_GetURL (notify false) and NPN_GetURLNotify (notify true): accept (queue) or refuse the request.
        virtual NPError requestUrl(NPP instance, const char* url, const char* target, void* notifyData,
                                   bool notify) = 0;
        // NPN_UserAgent: a text that stays valid until the next call.
        virtual const char* userAgentOf(NPP instance) = 0;
        // Every other browser call the plug-in makes ("setvalue", "getvalue", "posturl", "status", ...),
        // with its arguments as text; the browser's answers to them are fixed (see NpapiHost.cpp).
        virtual void noteCall(const char* function, NPP instance, const std::string& detail, void* notifyData) {
            (void)function, (void)instance, (void)detail, (void)notifyData;
        }
    };

    // One element of the page. Its names and values stay in place while it lives (the plug-in may keep
    // pointers to them); once it is destroyed only the record itself is kept, emptied (see kKeptRecords).
    struct Instance {
        NPP_t npp{};
        std::vector<std::string> names, values;
        NPWindow window{};
        bool alive = false;    // between a successful NPP_New and NPP_Destroy
        bool retired = false;  // destroyed or discarded: never handed to the plug-in again
    };

    // How many records of destroyed instances are kept, the oldest freed first. The host never reads
    // through an NPP the plug-in hands it: it only compares it with the NPPs of the instances alive, so the
    // NPP of a destroyed instance matches none and a late call with it is dropped. The one harm would be
    // an address given again to a new instance while the plug-in still holds the old one: keeping the
    // record keeps its address taken, so that needs this many instances made after it. The plug-in calls
    // the browser only from inside its own calls, on the browser's thread, and its NPP_Destroy releases
    // what it knew of the instance (pdata), so nothing of it is left to call with by then.
    static constexpr size_t kKeptRecords = 1024;

    // What the host holds for instances: records (alive or kept) and the bytes of their names and values.
    struct Usage {
        size_t records = 0;
        size_t parameterBytes = 0;
    };

    // Loads the library; loaded() tells whether that worked and loadError() why not.
    NpapiHost(const std::string& pluginPath, Handler& handler);
    // Destroys the instances still alive, calls NP_Shutdown when NP_Initialize succeeded, unloads.
    ~NpapiHost();
    NpapiHost(const NpapiHost&) = delete;
    NpapiHost& operator=(const NpapiHost&) = delete;

    bool loaded() const { return m_library != nullptr; }
    const std::string& loadError() const { return m_loadError; }
    NP_GetMIMEDescriptionFunc getMIMEDescription = nullptr;
    NP_GetValueFunc getValue = nullptr;

    // NP_Initialize with a browser table of this version and size (27 and 472 are a current browser's).
    NPError initialize(uint16_t version = 27, uint16_t size = kBrowserTableFullSize,
                       uint16_t pluginTableSize = kPluginTableFullSize);
    bool initialized() const { return m_initialized; }
    const NPPluginFuncs& plugin() const { return m_pluginTable.funcs; }

    // An element's width or height as a browser lays it out from its parameters: the first one named `name`
    // (in any case) read as a number, 0 to 65535; 0 when there is none.
    static uint32_t size(const Parameters& parameters, const char* name);

    // NPP_New of an embed with these parameters (names and values as the page wrote them). The instance
    // stays owned by the host; its NPP_New result goes to `result`.
    Instance* create(const Parameters& parameters, NPError* result = nullptr);
    // NPP_SetWindow with a windowless drawable of this size.
    NPError setWindow(Instance* instance, uint32_t width, uint32_t height);
    // NPP_Destroy; a destroyed instance is never called again. Its names and values are freed; the
    // record stays readable until kKeptRecords more instances have gone (a second destroy() of it
    // answers NPERR_INVALID_INSTANCE_ERROR).
    NPError destroy(Instance* instance);
    // Frees an instance whose NPP_New failed without calling NPP_Destroy, as a browser does not destroy
    // what the plug-in never made; the record is kept as destroy() keeps it.
    void discard(Instance* instance);
    Usage usage() const;

    // The body of one URL request, handed to the plug-in as a browser does: open() is NPP_NewStream,
    // write() loops NPP_WriteReady / NPP_Write until the plug-in has taken the bytes, finish() is
    // NPP_DestroyStream (when the stream opened) and then NPP_URLNotify (when the request asked for it).
    class Stream {
    public:
        Stream(NpapiHost& host, NPP instance, std::string url, void* notifyData, bool notify);
        // An unfinished stream is abandoned: the plug-in hears nothing more of it (its element is going away).
        ~Stream() = default;
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        // False when the plug-in refused the stream; finish() then only notifies, with a network error.
        bool open(const std::string& mimeType, uint32_t length = 0);
        // False when the plug-in stopped taking bytes (a negative or zero answer); the caller then finishes
        // with a network error. At most `pieceLimit` bytes go into one NPP_Write.
        bool write(const char* data, size_t length, size_t pieceLimit = SIZE_MAX);
        void finish(NPReason reason);
        bool opened() const { return m_opened; }
        bool finished() const { return m_finished; }
        size_t written() const { return m_offset; }
        NPP instance() const { return m_instance; }

    private:
        NpapiHost& m_host;
        NPP m_instance;
        std::string m_url;
        std::string m_mimeType;
        NPStream m_stream{};
        bool m_notify;
        bool m_opened = false;
        bool m_refused = false;
        bool m_finished = false;
        size_t m_offset = 0;
    };

    // For the browser's table functions only.
    Handler& handler() { return m_handler; }

private:
    Handler& m_handler;
    void* m_library = nullptr;
    std::string m_loadError;
    NP_InitializeFunc m_initialize = nullptr;
    NP_ShutdownFunc m_shutdown = nullptr;
    std::vector<unsigned char> m_browserTable;
    union PluginTable {
        NPPluginFuncs funcs;
        unsigned char bytes[kPluginTableFullSize];
    } m_pluginTable{};
    bool m_initialized = false;
    void retire(Instance* instance);
    std::vector<std::unique_ptr<Instance>> m_instances;  // not yet destroyed
    std::deque<std::unique_ptr<Instance>> m_retired;     // the last kKeptRecords destroyed, emptied
};

#endif
