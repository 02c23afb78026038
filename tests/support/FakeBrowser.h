// A browser for tests, on the host's NPAPI core (host/NpapiHost): loads the plug-in with dlopen and drives it
// only through NP_Initialize and the function tables, as a browser does. It records every call the plug-in
// makes into it, runs a scripted page for javascript: URLs (return values come back
// as text/plain streams), fetches http://127.0.0.1 URLs over a real socket, and serves chosen URLs from
// memory; replies are delivered in chunks through the stream callbacks and ended with NPP_URLNotify.
// One FakeBrowser may exist at a time in a process (the plug-in's calls find it through a global).
#ifndef PASSWAY_TESTS_FAKEBROWSER_H
#define PASSWAY_TESTS_FAKEBROWSER_H

#include <deque>
#include <functional>
#include <map>
#include <optional>

#include "NpapiHost.h"

class FakeBrowser : private NpapiHost::Handler {
public:
    // One call the plug-in made into the browser: "geturl", "geturlnotify", "setvalue", ...
    struct Call {
        std::string function, url;
    };
    using Instance = NpapiHost::Instance;
    using Parameters = NpapiHost::Parameters;

    explicit FakeBrowser(const std::string& pluginPath) : m_host(pluginPath, *this) {}  // not copyable

    const NpapiHost& host() const { return m_host; }  // NP_GetMIMEDescription, NP_GetValue
    // NP_Initialize with a browser table of this version and size (472 and 0.27 are today's).
    NPError initialize(uint16_t version = 27, uint16_t size = 472, uint16_t pluginTableSize = 168) {
        return m_host.initialize(version, size, pluginTableSize);
    }
    const NPPluginFuncs& plugin() const { return m_host.plugin(); }
    // NPP_New for an embed with these parameters; the instance stays owned by the browser. When NPP_New
    // fails, the requests the element made meanwhile are dropped.
    Instance* create(const Parameters& parameters, NPError* result = nullptr);

    // NPP_Destroy; the element's queued requests are dropped, as its page is gone.
    NPError destroy(Instance* instance);
    // Runs queued requests, and those they cause, until none is left (at most `limit`).
    void pump(int limit = 1000);

    // Test controls.
    // The page: (function name, argument text) -> the function's return value, if any.
    std::function<std::optional<std::string>(const std::string&, const std::string&)> page =
        [](const std::string&, const std::string&) { return std::optional<std::string>(); };
    std::string userAgent = "Mozilla/5.0 (X11; Linux x86_64) FakeBrowser/1.0";
    int32_t chunkSize = 4096;  // largest piece handed to NPP_Write
    bool failNetwork = false;  // http requests end with a network error, no stream
    // A stream that has delivered this many bytes ends there with cutReason (0 = never).
    size_t cutAfterBytes = 0;
    NPReason cutReason = NPRES_NETWORK_ERR;
    bool quiet = false;  // neither record calls nor run page calls (for measurements)
    // NPN_GetURL(Notify) answers `refusal` for the URLs that begin with `refused` ("" refuses none); the call
    // is recorded all the same, the request is not made.
    std::string refused;
    NPError refusal = NPERR_GENERIC_ERROR;
    // Serves `body` (kept alive by the caller too, never copied) for `url`.
    void serveShared(const std::string& url, const std::string& mimeType,
                     std::shared_ptr<const std::string> body) {
        m_served[url] = {mimeType, std::move(body)};
    }
    const std::vector<Call>& calls() const { return m_calls; }
    // The URLs the plug-in asked for, in order: the page calls (javascript:) or the others.
    std::vector<std::string> urls(bool pageCalls) const;

private:
    NPError requestUrl(NPP instance, const char* url, const char* target, void* notifyData,
                       bool notify) override;
    const char* userAgentOf(NPP) override { return userAgent.c_str(); }
    void noteCall(const char* function, NPP, const std::string& detail, void*) override {
        m_calls.push_back({function, detail});
    }
    struct Request {
        NPP instance;
        std::string url;
        void* notifyData;
        bool notify;
    };
    using Reply = std::pair<std::string, std::shared_ptr<const std::string>>;  // MIME type and body
    std::optional<Reply> fetch(const std::string& url);
    void forget(Instance* instance);  // drops the element's queued requests

    std::deque<Request> m_queue;
    std::vector<Call> m_calls;
    std::map<std::string, Reply> m_served;
    NpapiHost m_host;  // the last: its clean-up may still call into the members above
};

#endif
