// The browser's side of NPAPI: the function table the plug-in calls, instances and streams.
#include "NpapiHost.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <strings.h>

namespace {

NpapiHost* g_host = nullptr;

NpapiHost::Handler* handler() { return g_host != nullptr ? &g_host->handler() : nullptr; }

NPError browserGetURL(NPP instance, const char* url, const char* target) {
    return handler() != nullptr ? handler()->requestUrl(instance, url, target, nullptr, false) : NPERR_GENERIC_ERROR;
}
NPError browserGetURLNotify(NPP instance, const char* url, const char* target, void* notifyData) {
    return handler() != nullptr ? handler()->requestUrl(instance, url, target, notifyData, true) : NPERR_GENERIC_ERROR;
}
const char* browserUserAgent(NPP instance) { return handler() != nullptr ? handler()->userAgentOf(instance) : ""; }
NPError browserSetValue(NPP instance, NPPVariable variable, void* value) {
    if (handler() != nullptr)
        handler()->noteCall("setvalue",
                            instance, std::to_string(variable) + "=" + std::to_string(reinterpret_cast<uintptr_t>(value)),
                            nullptr);
    return NPERR_NO_ERROR;
}
NPError browserGetValue(NPP instance, NPNVariable variable, void*) {
    if (handler() != nullptr) handler()->noteCall("getvalue", instance, std::to_string(variable), nullptr);
    return NPERR_GENERIC_ERROR;  // no window system, no scripting objects
}
void* browserMemAlloc(uint32_t size) { return malloc(size); }
void browserMemFree(void* p) { free(p); }
NPError browserPostURL(NPP instance, const char* url, const char*, uint32_t, const char*, NPBool) {
    if (handler() != nullptr) handler()->noteCall("posturl", instance, url != nullptr ? url : "", nullptr);
    return NPERR_GENERIC_ERROR;
}
NPError browserPostURLNotify(NPP instance, const char* url, const char*, uint32_t, const char*, NPBool, void* data) {
    if (handler() != nullptr) handler()->noteCall("posturlnotify", instance, url != nullptr ? url : "", data);
    return NPERR_GENERIC_ERROR;
}
void browserStatus(NPP instance, const char* message) {
    if (handler() != nullptr) handler()->noteCall("status", instance, message != nullptr ? message : "", nullptr);
}

constexpr char kMimeType[] = "application/x-orvane-sslvpn";

}  // namespace

NpapiHost::NpapiHost(const std::string& pluginPath, Handler& handler) : m_handler(handler) {
    g_host = this;
    m_library = dlopen(pluginPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr) {
        const char* error = dlerror();
        m_loadError = error != nullptr ? error : "dlopen failed";
        return;
    }
    m_initialize = reinterpret_cast<NP_InitializeFunc>(dlsym(m_library, "NP_Initialize"));
    m_shutdown = reinterpret_cast<NP_ShutdownFunc>(dlsym(m_library, "NP_Shutdown"));
    getMIMEDescription = reinterpret_cast<NP_GetMIMEDescriptionFunc>(dlsym(m_library, "NP_GetMIMEDescription"));
    getValue = reinterpret_cast<NP_GetValueFunc>(dlsym(m_library, "NP_GetValue"));
    if (m_initialize == nullptr || m_shutdown == nullptr) {
        m_loadError = "not an NPAPI plug-in: " + pluginPath;
        dlclose(m_library);
        m_library = nullptr;
    }
}

NpapiHost::~NpapiHost() {
    while (!m_instances.empty()) {
        Instance* instance = m_instances.back().get();
        instance->alive ? static_cast<void>(destroy(instance)) : discard(instance);
    }
    if (m_initialized) m_shutdown();
    if (m_library != nullptr) dlclose(m_library);
    if (g_host == this) g_host = nullptr;
}

NPError NpapiHost::initialize(uint16_t version, uint16_t size, uint16_t pluginTableSize) {
    if (m_library == nullptr) return NPERR_MODULE_LOAD_FAILED_ERROR;
    NPNetscapeFuncs funcs = {};
    funcs.geturl = browserGetURL;
    funcs.posturl = browserPostURL;
    funcs.status = browserStatus;
    funcs.uagent = browserUserAgent;
    funcs.memalloc = browserMemAlloc;
    funcs.memfree = browserMemFree;
    funcs.geturlnotify = browserGetURLNotify;
    funcs.posturlnotify = browserPostURLNotify;
    funcs.getvalue = browserGetValue;
    funcs.setvalue = browserSetValue;
    // A table of `size` bytes: our functions as far as they reach, zeros after them.
    m_browserTable.assign(std::max<size_t>(size, sizeof funcs), 0);
    memcpy(m_browserTable.data(), &funcs, std::min<size_t>(size, sizeof funcs));
    NPNetscapeFuncs* table = reinterpret_cast<NPNetscapeFuncs*>(m_browserTable.data());
    table->size = size;
    table->version = version;
    memset(&m_pluginTable, 0, sizeof m_pluginTable);
    m_pluginTable.funcs.size = pluginTableSize;
    m_pluginTable.funcs.version = 27;
    NPError result = m_initialize(table, &m_pluginTable.funcs);
    m_initialized = result == NPERR_NO_ERROR;
    return result;
}

NpapiHost::Instance* NpapiHost::create(const Parameters& parameters, NPError* result) {
    m_instances.push_back(std::make_unique<Instance>());
    Instance* instance = m_instances.back().get();
    for (const auto& p : parameters) {
        instance->names.push_back(p.first);
        instance->values.push_back(p.second);
    }
    std::vector<char*> names, values;
    for (size_t i = 0; i < parameters.size(); ++i) {
        names.push_back(&instance->names[i][0]);
        values.push_back(&instance->values[i][0]);
    }
    char type[sizeof kMimeType];
    memcpy(type, kMimeType, sizeof kMimeType);
    NPError error = NPERR_INVALID_PLUGIN_ERROR;
    if (m_initialized && plugin().newp != nullptr) {
        int16_t count = static_cast<int16_t>(std::min<size_t>(parameters.size(), INT16_MAX));
        error = plugin().newp(type, &instance->npp, NP_EMBED, count, names.data(), values.data(), nullptr);
    }
    instance->alive = error == NPERR_NO_ERROR;
    if (result != nullptr) *result = error;
    return instance;
}

uint32_t NpapiHost::size(const Parameters& parameters, const char* name) {
    for (const auto& [key, value] : parameters)
        if (strcasecmp(key.c_str(), name) == 0) return static_cast<uint32_t>(std::clamp(atol(value.c_str()), 0L, 65535L));
    return 0;
}

NPError NpapiHost::setWindow(Instance* instance, uint32_t width, uint32_t height) {
    if (instance == nullptr || !instance->alive || plugin().setwindow == nullptr) return NPERR_INVALID_INSTANCE_ERROR;
    instance->window.width = width;
    instance->window.height = height;
    instance->window.clipRect.right = static_cast<uint16_t>(std::min<uint32_t>(width, UINT16_MAX));
    instance->window.clipRect.bottom = static_cast<uint16_t>(std::min<uint32_t>(height, UINT16_MAX));
    instance->window.type = NPWindowTypeDrawable;
    return plugin().setwindow(&instance->npp, &instance->window);
}

NPError NpapiHost::destroy(Instance* instance) {
    if (instance == nullptr || instance->retired) return NPERR_INVALID_INSTANCE_ERROR;
    NPError error = plugin().destroy != nullptr ? plugin().destroy(&instance->npp, nullptr) : NPERR_GENERIC_ERROR;
    retire(instance);
    return error;
}

void NpapiHost::discard(Instance* instance) {
    if (instance != nullptr && !instance->retired) retire(instance);
}

// Frees what the plug-in may no longer read and moves the record to the kept ones.
void NpapiHost::retire(Instance* instance) {
    instance->alive = false;
    instance->retired = true;
    std::vector<std::string>().swap(instance->names);
    std::vector<std::string>().swap(instance->values);
    auto it = std::find_if(m_instances.begin(), m_instances.end(),
                           [&](const std::unique_ptr<Instance>& kept) { return kept.get() == instance; });
    if (it == m_instances.end()) return;
    m_retired.push_back(std::move(*it));
    m_instances.erase(it);
    if (m_retired.size() > kKeptRecords) m_retired.pop_front();
}

NpapiHost::Usage NpapiHost::usage() const {
    Usage usage;
    auto count = [&](const Instance& instance) {
        ++usage.records;
        for (const std::string& text : instance.names) usage.parameterBytes += text.size();
        for (const std::string& text : instance.values) usage.parameterBytes += text.size();
    };
    for (const auto& instance : m_instances) count(*instance);
    for (const auto& instance : m_retired) count(*instance);
    return usage;
}

// ---- streams ---------------------------------------------------------------------------------------------

NpapiHost::Stream::Stream(NpapiHost& host, NPP instance, std::string url, void* notifyData, bool notify)
    : m_host(host), m_instance(instance), m_url(std::move(url)), m_notify(notify) {
    m_stream.url = m_url.c_str();
    m_stream.notifyData = notifyData;
}

bool NpapiHost::Stream::open(const std::string& mimeType, uint32_t length) {
    m_mimeType = mimeType;
    m_stream.end = length;
    uint16_t stype = NP_NORMAL;
    m_opened = m_host.plugin().newstream(m_instance, &m_mimeType[0], &m_stream, 0, &stype) == NPERR_NO_ERROR;
    m_refused = !m_opened;
    return m_opened;
}

bool NpapiHost::Stream::write(const char* data, size_t length, size_t pieceLimit) {
    const NPPluginFuncs& p = m_host.plugin();
    for (size_t done = 0; done < length;) {
        int32_t ready = p.writeready(m_instance, &m_stream);
        if (ready <= 0) return false;
        size_t n = std::min({static_cast<size_t>(ready), pieceLimit, length - done});
        // The plug-in reads the piece in place, as from a browser's own buffer.
        void* piece = const_cast<char*>(data + done);
        int32_t taken = p.write(m_instance, &m_stream, static_cast<int32_t>(m_offset), static_cast<int32_t>(n), piece);
        if (taken <= 0) return false;
        size_t used = std::min(static_cast<size_t>(taken), n);
        done += used;
        m_offset += used;
    }
    return true;
}

void NpapiHost::Stream::finish(NPReason reason) {
    if (m_finished) return;
    m_finished = true;
    if (m_opened) m_host.plugin().destroystream(m_instance, &m_stream, reason);
    if (m_notify) m_host.plugin().urlnotify(m_instance, m_url.c_str(), m_refused ? NPRES_NETWORK_ERR : reason,
                                            m_stream.notifyData);
}
