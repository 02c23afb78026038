// passway-host's browser: the messages of the extension in, the plug-in driven as a browser drives it, and
// the plug-in's URL requests routed out (page calls and package fetches to the extension, service requests
// over loopback). The message protocol is written down in docs/bridge.md.
//
// Single-threaded. The plug-in's calls into the browser only queue their requests; run() carries them once
// the plug-in has returned, so the plug-in is never re-entered from inside one of its own calls.
#ifndef PASSWAY_HOST_BRIDGE_H
#define PASSWAY_HOST_BRIDGE_H

#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Frames.h"
#include "NpapiHost.h"
#include "Protocol.h"
#include "ServiceGuard.h"
#include "ServiceRequest.h"

class Bridge : private NpapiHost::Handler {
public:
    using Error = protocol::Error;

    // `pluginPath` is loaded at the extension's hello; messages to the extension go through `out`.
    Bridge(std::string pluginPath, FrameWriter& out, protocol::Limits limits = protocol::Limits());
    // Ends every element and the plug-in (see shutdown()).
    ~Bridge() override;
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    // One frame of the extension. Bad input gets an error message and a log line, never more.
    void onFrame(const std::string& text);
    // Carries the plug-in's queued requests (and those they cause) until none is left.
    void run();
    // The service sockets to watch, and what to do when one is readable.
    std::vector<int> watched() const;
    void onReadable(int fd);
    // The guard told which service this host's plug-in starts and when the plug-in stopped it (none: the
    // host runs unguarded, as in the tests); `clientRoot` is the installed client's root.
    void setGuard(ServiceGuard* guard, std::string clientRoot);
    // The tab closed: abandons every open request (removing a partial package file), destroys every
    // element, shuts the plug-in down and unloads it.
    void shutdown();
    // What the plug-in's host holds for the elements (nothing before hello).
    NpapiHost::Usage usage() const;

private:
    // A URL request of the plug-in.
    struct Pending {
        NPP instance = nullptr;
        std::string url;
        void* notifyData = nullptr;
        bool notify = false;
    };
    // A package (or other http) body the extension fetches.
    struct Fetch {
        Pending request;
        std::unique_ptr<NpapiHost::Stream> stream;
        std::string file;  // the file the plug-in writes the body to, when it made one
    };

    NPError requestUrl(NPP instance, const char* url, const char* target, void* notifyData, bool notify) override;
    const char* userAgentOf(NPP instance) override;

    void onMessage(const std::string& frame);
    bool takeDataFrame(const std::string& frame);
    size_t requestsInFlight() const;
    void hello(const nlohmann::json& message);
    void create(const nlohmann::json& message);
    void destroy(const nlohmann::json& message);
    void result(const nlohmann::json& message);
    void response(const nlohmann::json& message);
    void data(const nlohmann::json& message);
    void end(const nlohmann::json& message);

    void carry(const Pending& request);
    void noteServiceStarted(NPP instance);
    NPError destroyInstance(NpapiHost::Instance* instance);
    void endFetch(uint64_t id, NPReason reason, bool cancel);
    void removePartialFile(const Fetch& fetch);
    void endElement(NPP instance);
    int64_t elementOf(NPP instance) const;
    bool alive(NPP instance) const;
    // Sends the error `code` carrying `value` and logs it (with `about`, when given).
    void refuse(Error code, const nlohmann::json& value, const std::string& about = "");
    Fetch* openFetch(const nlohmann::json& message);

    std::string m_pluginPath;
    FrameWriter& m_out;
    protocol::Limits m_limits;
    std::unique_ptr<NpapiHost> m_npapi;
    bool m_ready = false;
    bool m_pluginFailed = false;
    std::string m_userAgent;
    std::map<int64_t, NpapiHost::Instance*> m_elements;
    std::deque<Pending> m_queue;
    uint64_t m_nextId = 1;
    std::map<uint64_t, Pending> m_calls;
    std::map<uint64_t, Fetch> m_fetches;
    std::set<uint64_t> m_dropped;  // calls and fetches given up: late messages for them are ignored
    std::vector<std::unique_ptr<ServiceRequest>> m_service;
    ServiceGuard* m_guard = nullptr;
    std::string m_clientRoot;
    NPP m_serviceOwner = nullptr;  // the instance whose plug-in started the service it now owns
};

#endif
