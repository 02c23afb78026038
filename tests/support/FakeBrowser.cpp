#include "FakeBrowser.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

FakeBrowser* g_browser = nullptr;

NPError browserGetURL(NPP instance, const char* url, const char* target) {
    return g_browser->requestUrl(instance, url, target, nullptr, false, "geturl");
}
NPError browserGetURLNotify(NPP instance, const char* url, const char* target, void* notifyData) {
    return g_browser->requestUrl(instance, url, target, notifyData, true, "geturlnotify");
}
const char* browserUserAgent(NPP instance) {
    g_browser->record({"uagent", "", nullptr, instance});
    return g_browser->userAgent.c_str();
}
NPError browserSetValue(NPP instance, NPPVariable variable, void* value) {
    g_browser->record({"setvalue", std::to_string(variable) + "=" + std::to_string(reinterpret_cast<uintptr_t>(value)),
                       nullptr, instance});
    return NPERR_NO_ERROR;
}
NPError browserGetValue(NPP instance, NPNVariable variable, void*) {
    g_browser->record({"getvalue", std::to_string(variable), nullptr, instance});
    return NPERR_GENERIC_ERROR;
}
void* browserMemAlloc(uint32_t size) { return malloc(size); }
void browserMemFree(void* p) { free(p); }
NPError browserPostURL(NPP instance, const char* url, const char*, uint32_t, const char*, NPBool) {
    g_browser->record({"posturl", url != nullptr ? url : "", nullptr, instance});
    return NPERR_GENERIC_ERROR;
}
NPError browserPostURLNotify(NPP instance, const char* url, const char*, uint32_t, const char*, NPBool, void* data) {
    g_browser->record({"posturlnotify", url != nullptr ? url : "", data, instance});
    return NPERR_GENERIC_ERROR;
}
void browserStatus(NPP instance, const char* message) {
    g_browser->record({"status", message != nullptr ? message : "", nullptr, instance});
}

// "javascript:name(argument)" -> name and argument; a single-quoted argument loses its quotes.
std::pair<std::string, std::string> pageCall(const std::string& url) {
    std::string call = url.substr(strlen("javascript:"));
    size_t open = call.find('(');
    size_t close = call.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) return {call, ""};
    std::string argument = call.substr(open + 1, close - open - 1);
    if (argument.size() >= 2 && argument.front() == '\'' && argument.back() == '\'')
        argument = argument.substr(1, argument.size() - 2);
    return {call.substr(0, open), argument};
}

}  // namespace

FakeBrowser::FakeBrowser(const std::string& pluginPath) {
    g_browser = this;
    m_library = dlopen(pluginPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_library == nullptr) return;
    m_initialize = reinterpret_cast<NP_InitializeFunc>(dlsym(m_library, "NP_Initialize"));
    m_shutdown = reinterpret_cast<NP_ShutdownFunc>(dlsym(m_library, "NP_Shutdown"));
    getMIMEDescription = reinterpret_cast<NP_GetMIMEDescriptionFunc>(dlsym(m_library, "NP_GetMIMEDescription"));
    getValue = reinterpret_cast<NP_GetValueFunc>(dlsym(m_library, "NP_GetValue"));
}

FakeBrowser::~FakeBrowser() {
    for (auto& instance : m_instances)
        if (instance->npp.pdata != nullptr) plugin().destroy(&instance->npp, nullptr);
    if (m_initialized && m_shutdown != nullptr) m_shutdown();
    if (m_library != nullptr) dlclose(m_library);
    g_browser = nullptr;
}

NPError FakeBrowser::initialize(uint16_t version, uint16_t size, uint16_t pluginTableSize) {
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

FakeBrowser::Instance* FakeBrowser::create(const Parameters& parameters, NPError* result) {
    m_instances.push_back(std::make_unique<Instance>());
    Instance* instance = m_instances.back().get();
    std::vector<char*> names, values;
    for (const auto& p : parameters) {
        instance->names.push_back(p.first);
        instance->values.push_back(p.second);
    }
    for (size_t i = 0; i < parameters.size(); ++i) {
        names.push_back(&instance->names[i][0]);
        values.push_back(&instance->values[i][0]);
    }
    char type[] = "application/x-orvane-sslvpn";
    NPError error = plugin().newp(type, &instance->npp, NP_EMBED, static_cast<int16_t>(parameters.size()),
                                  names.data(), values.data(), nullptr);
    if (result != nullptr) *result = error;
    return instance;
}

NPError FakeBrowser::destroy(Instance* instance) {
    NPError error = plugin().destroy(&instance->npp, nullptr);
    for (auto& request : m_queue)
        if (request.instance == &instance->npp) request.instance = nullptr;  // the page is gone
    return error;
}

NPError FakeBrowser::requestUrl(NPP instance, const char* url, const char* target, void* notifyData, bool notify,
                                const char* function) {
    std::string text = url != nullptr ? url : "";
    if (quiet && text.rfind("javascript:", 0) == 0) return NPERR_NO_ERROR;
    if (!quiet) record({function, text, notifyData, instance});
    NPError refused = refuse(text);
    if (refused != NPERR_NO_ERROR) return refused;
    if (target == nullptr) m_queue.push_back({instance, text, notifyData, notify});
    return NPERR_NO_ERROR;
}

std::vector<std::string> FakeBrowser::pageCalls() const {
    std::vector<std::string> urls;
    for (const Call& c : m_calls)
        if ((c.function == "geturl" || c.function == "geturlnotify") && c.url.rfind("javascript:", 0) == 0)
            urls.push_back(c.url);
    return urls;
}

std::vector<std::string> FakeBrowser::httpRequests() const {
    std::vector<std::string> urls;
    for (const Call& c : m_calls)
        if ((c.function == "geturl" || c.function == "geturlnotify") && c.url.rfind("javascript:", 0) != 0)
            urls.push_back(c.url);
    return urls;
}

FakeBrowser::Reply FakeBrowser::fetch(const std::string& url) {
    Reply reply;
    auto served = m_served.find(url);
    if (served != m_served.end()) return {true, served->second.first, served->second.second};
    if (failNetwork || url.rfind("http://", 0) != 0) return reply;
    std::string rest = url.substr(7);
    size_t slash = rest.find('/');
    std::string authority = rest.substr(0, slash), path = slash == std::string::npos ? "/" : rest.substr(slash);
    size_t colon = authority.find(':');
    std::string host = authority.substr(0, colon);
    int port = colon == std::string::npos ? 80 : atoi(authority.c_str() + colon + 1);

    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return reply;
    }
    std::string request = "GET " + path + " HTTP/1.0\r\nHost: " + authority + "\r\n\r\n";
    if (write(fd, request.data(), request.size()) < 0) {
        close(fd);
        return reply;
    }
    std::string response;
    char buffer[65536];
    for (;;) {
        struct pollfd readable = {fd, POLLIN, 0};
        if (poll(&readable, 1, 5000) <= 0) break;  // a silent server ends the request as a network error
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        response.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    size_t headerEnd = response.find("\r\n\r\n");
    if (headerEnd == std::string::npos) return reply;
    std::string headers = response.substr(0, headerEnd);
    reply.ok = true;
    reply.mimeType = "text/plain";
    size_t type = headers.find("Content-Type: ");
    if (type != std::string::npos) reply.mimeType = headers.substr(type + 14, headers.find("\r\n", type) - type - 14);
    reply.body = std::make_shared<const std::string>(response.substr(headerEnd + 4));
    return reply;
}

void FakeBrowser::deliver(const Request& request, const Reply& reply) {
    NPStream stream = {};
    stream.url = request.url.c_str();
    const std::string& body = *reply.body;
    stream.end = static_cast<uint32_t>(body.size());
    stream.notifyData = request.notifyData;
    uint16_t stype = NP_NORMAL;
    std::vector<char> type(reply.mimeType.begin(), reply.mimeType.end());
    type.push_back('\0');
    NPReason reason = NPRES_DONE;
    if (plugin().newstream(request.instance, type.data(), &stream, 0, &stype) != NPERR_NO_ERROR) {
        reason = NPRES_NETWORK_ERR;
    } else {
        for (size_t offset = 0; offset < body.size();) {
            int32_t ready = plugin().writeready(request.instance, &stream);
            int32_t n = static_cast<int32_t>(std::min<size_t>({static_cast<size_t>(std::max(ready, 0)),
                                                               static_cast<size_t>(chunkSize), body.size() - offset}));
            if (n <= 0) break;
            // The plug-in reads the piece in place, as from a browser's own buffer.
            void* piece = const_cast<char*>(body.data() + offset);
            int32_t taken = plugin().write(request.instance, &stream, static_cast<int32_t>(offset), n, piece);
            if (taken <= 0) {
                reason = NPRES_NETWORK_ERR;
                break;
            }
            offset += static_cast<size_t>(taken);
            if (cutAfterBytes > 0 && offset >= cutAfterBytes && offset < body.size()) {
                reason = cutReason;
                break;
            }
        }
        plugin().destroystream(request.instance, &stream, reason);
    }
    if (request.notify) plugin().urlnotify(request.instance, request.url.c_str(), reason, request.notifyData);
}

void FakeBrowser::pump(int limit) {
    for (int done = 0; done < limit && !m_queue.empty();) {
        Request request = m_queue.front();
        m_queue.pop_front();
        if (request.instance == nullptr) continue;  // its page is gone
        ++done;
        if (request.url.rfind("javascript:", 0) == 0) {
            auto call = pageCall(request.url);
            std::optional<std::string> value = page(call.first, call.second);
            if (value) {
                deliver(request, {true, "text/plain", std::make_shared<const std::string>(*value)});
            } else if (request.notify) {
                plugin().urlnotify(request.instance, request.url.c_str(), NPRES_DONE, request.notifyData);
            }
            continue;
        }
        Reply reply = fetch(request.url);
        if (reply.ok)
            deliver(request, reply);
        else if (request.notify)
            plugin().urlnotify(request.instance, request.url.c_str(), NPRES_NETWORK_ERR, request.notifyData);
    }
}
