// passway-host's browser: extension messages in, plug-in calls, requests routed out.
#include "Bridge.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cctype>
#include <cstdlib>
#include <dirent.h>
#include <strings.h>
#include <unistd.h>

#include "Encoding"
#include "HostLog.h"
#include "PageCall.h"
#include "ServiceAddress.h"

using nlohmann::json;

namespace {

constexpr char kJavascript[] = "javascript:";
constexpr size_t kMaxDropped = 4096;

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

bool isServiceUrl(const std::string& url) { return startsWith(url, TUNVO_SERVICE_ORIGIN "/"); }
bool isWebUrl(const std::string& url) { return startsWith(url, "http://") || startsWith(url, "https://"); }

// The files in the system's temporary folder that this process has open, by descriptor.
std::map<std::string, std::string> openTemporaryFiles() {
    std::map<std::string, std::string> files;
    DIR* folder = opendir("/proc/self/fd");
    if (folder == nullptr) return files;
    const std::string temporary = std::string(P_tmpdir) + "/";
    while (dirent* entry = readdir(folder)) {
        char target[PATH_MAX];
        std::string link = std::string("/proc/self/fd/") + entry->d_name;
        ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
        if (n <= 0) continue;
        target[n] = '\0';
        if (startsWith(target, temporary.c_str())) files[entry->d_name] = target;
    }
    closedir(folder);
    return files;
}

bool integer(const json& message, const char* field, int64_t& value) {
    auto it = message.find(field);
    if (it == message.end() || !it->is_number_integer()) return false;
    value = it->get<int64_t>();
    return true;
}

bool text(const json& message, const char* field, std::string& value) {
    auto it = message.find(field);
    if (it == message.end() || !it->is_string()) return false;
    value = it->get<std::string>();
    return true;
}

uint32_t dimension(const NpapiHost::Parameters& attributes, const char* name) {
    for (const auto& [key, value] : attributes)
        if (strcasecmp(key.c_str(), name) == 0) return static_cast<uint32_t>(std::clamp(atol(value.c_str()), 0L, 65535L));
    return 0;
}

}  // namespace

Bridge::Bridge(std::string pluginPath, FrameWriter& out) : m_pluginPath(std::move(pluginPath)), m_out(out) {}

Bridge::~Bridge() { shutdown(); }

// ---- the extension's messages ----------------------------------------------------------------------------

void Bridge::refuse(int code, const std::string& message, const char* field, const json& value) {
    std::string detail = value.dump(-1, ' ', false, json::error_handler_t::replace);
    hostLog("refused (%d %s): %s=%.200s", code, message.c_str(), field, detail.c_str());
    m_out.send({{"op", "error"}, {"code", code}, {"message", message}, {field, value}});
}

// The package's data frames are nearly all of what arrives. The JSON library reads a long string a byte at a
// time and copies it twice, so the one shape the extension sends them in, {"op":"data","request":N,"data":"..."}
// with nothing but base64 digits in the text, is read here; any other shape goes to the library like every
// other message. Returns false when the frame was not taken.
bool Bridge::takeDataFrame(const std::string& frame) {
    static const char kHead[] = "{\"op\":\"data\",\"request\":";
    static const char kData[] = ",\"data\":\"";
    constexpr size_t kHeadLength = sizeof kHead - 1, kDataLength = sizeof kData - 1;
    if (!m_ready || frame.compare(0, kHeadLength, kHead) != 0) return false;
    size_t at = kHeadLength;
    uint64_t id = 0;
    size_t digits = 0;
    for (; at < frame.size() && frame[at] >= '0' && frame[at] <= '9' && digits < 18; ++at, ++digits)
        id = id * 10 + static_cast<uint64_t>(frame[at] - '0');
    if (digits == 0 || frame.compare(at, kDataLength, kData) != 0) return false;
    size_t start = at + kDataLength;
    size_t end = start;
    while (end < frame.size() && (isalnum(static_cast<unsigned char>(frame[end])) || frame[end] == '+' ||
                                  frame[end] == '/' || frame[end] == '='))
        ++end;
    if (frame.size() != end + 2 || frame[end] != '"' || frame[end + 1] != '}') return false;
    auto it = m_fetches.find(id);
    if (it == m_fetches.end() || it->second.stream == nullptr || !it->second.stream->opened())
        return m_dropped.count(id) != 0;  // late data of a fetch given up; anything else takes the long way
    // The digits end at the closing quote, which the decoder skips like every byte that is not a digit.
    CString bytes = CRFCBase64::Decode(frame.c_str() + start);
    if (!it->second.stream->write(bytes, static_cast<size_t>(bytes.GetLength())))
        endFetch(id, NPRES_NETWORK_ERR, true);
    return true;
}

void Bridge::onFrame(const std::string& frame) {
    try {
        onMessage(frame);
    } catch (const std::exception& e) {
        // Every field is checked before it is read; this is the last guard that keeps the host alive.
        hostLog("a message could not be handled: %s", e.what());
        m_out.send({{"op", "error"}, {"code", kBadMessage}, {"message", "bad message"}, {"refused", json()}});
    }
}

void Bridge::onMessage(const std::string& frame) {
    if (takeDataFrame(frame)) return;
    json message = json::parse(frame, nullptr, false);
    if (message.is_discarded() || !message.is_object()) {
        refuse(kBadFrame, "bad frame", "length", frame.size());
        return;
    }
    std::string op;
    if (!text(message, "op", op)) {
        refuse(kBadMessage, "bad message", "refused", message.contains("op") ? message["op"] : json());
        return;
    }
    if (op == "hello") return hello(message);
    static const std::set<std::string> known = {"create", "destroy", "result", "response", "data", "end"};
    if (known.count(op) == 0) return refuse(kUnknownOp, "unknown op", "refused", op);
    if (!m_ready) return refuse(kNotReady, "not ready", "refused", op);
    if (op == "create") return create(message);
    if (op == "destroy") return destroy(message);
    if (op == "result") return result(message);
    if (op == "response") return response(message);
    if (op == "data") return data(message);
    end(message);
}

void Bridge::hello(const json& message) {
    int64_t version = 0;
    if (m_ready || m_pluginFailed || !integer(message, "version", version) || !text(message, "userAgent", m_userAgent))
        return refuse(kBadMessage, "bad message", "refused", "hello");
    if (version != kProtocolVersion) return refuse(kUnsupportedVersion, "unsupported version", "got", version);
    m_ready = true;
    m_npapi = std::make_unique<NpapiHost>(m_pluginPath, static_cast<NpapiHost::Handler&>(*this));
    NPError initialized = m_npapi->loaded() ? m_npapi->initialize() : NPERR_MODULE_LOAD_FAILED_ERROR;
    if (initialized != NPERR_NO_ERROR) {
        hostLog("cannot use the plug-in %s: %s (NP_Initialize %d)", m_pluginPath.c_str(),
                m_npapi->loadError().c_str(), initialized);
        m_pluginFailed = true;
        return refuse(kNoPlugin, "no plug-in", "path", m_pluginPath);
    }
    const char* name = "";
    const char* description = "";
    m_npapi->getValue(nullptr, NPPVpluginNameString, &name);
    m_npapi->getValue(nullptr, NPPVpluginDescriptionString, &description);
    std::string origin = "?";
    text(message, "origin", origin);
    hostLog("plug-in %s loaded for %s", m_pluginPath.c_str(), origin.c_str());
    const char* mimeDescription = m_npapi->getMIMEDescription != nullptr ? m_npapi->getMIMEDescription() : nullptr;
    m_out.send({{"op", "ready"}, {"plugin", m_pluginPath}, {"name", name ? name : ""},
                {"description", description ? description : ""},
                {"mimeDescription", mimeDescription ? mimeDescription : ""}});
}

void Bridge::create(const json& message) {
    int64_t element = 0;
    auto attributes = message.find("attributes");
    if (!integer(message, "element", element) || attributes == message.end() || !attributes->is_array())
        return refuse(kBadMessage, "bad message", "refused", "create");
    NpapiHost::Parameters parameters;
    for (const json& pair : *attributes) {
        if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string() || !pair[1].is_string())
            return refuse(kBadMessage, "bad message", "refused", "create");
        parameters.emplace_back(pair[0].get<std::string>(), pair[1].get<std::string>());
    }
    if (m_pluginFailed) return refuse(kNoPlugin, "no plug-in", "path", m_pluginPath);
    if (m_elements.count(element) != 0) return refuse(kUnknownElement, "unknown element", "element", element);
    NPError created = NPERR_GENERIC_ERROR;
    NpapiHost::Instance* instance = m_npapi->create(parameters, &created);
    m_elements[element] = instance;
    if (instance->alive) m_npapi->setWindow(instance, dimension(parameters, "width"), dimension(parameters, "height"));
    m_out.send({{"op", "created"}, {"element", element}, {"result", created}});
}

void Bridge::destroy(const json& message) {
    int64_t element = 0;
    if (!integer(message, "element", element)) return refuse(kBadMessage, "bad message", "refused", "destroy");
    auto it = m_elements.find(element);
    if (it == m_elements.end()) return refuse(kUnknownElement, "unknown element", "element", element);
    NpapiHost::Instance* instance = it->second;
    m_elements.erase(it);
    NPError destroyed = NPERR_NO_ERROR;
    if (instance->alive) {
        endElement(&instance->npp);
        destroyed = m_npapi->destroy(instance);
    }
    m_out.send({{"op", "destroyed"}, {"element", element}, {"result", destroyed}});
}

void Bridge::result(const json& message) {
    int64_t id = 0;
    if (!integer(message, "call", id)) return refuse(kBadMessage, "bad message", "refused", "result");
    auto it = m_calls.find(static_cast<uint64_t>(id));
    if (it == m_calls.end()) {
        if (m_dropped.count(static_cast<uint64_t>(id)) == 0) refuse(kUnknownRequest, "unknown request", "call", id);
        return;
    }
    Pending call = it->second;
    m_calls.erase(it);
    NpapiHost::Stream stream(*m_npapi, call.instance, call.url, call.notifyData, call.notify);
    auto value = message.find("value");
    if (message.contains("error")) {
        hostLog("page call %s failed: %.200s", call.url.c_str(), message["error"].dump().c_str());
        stream.finish(NPRES_NETWORK_ERR);
    } else if (value != message.end() && value->is_string()) {
        // The function's value comes back as the body of the request, as a browser streams it.
        const std::string& body = value->get_ref<const std::string&>();
        NPReason reason = NPRES_DONE;
        if (stream.open("text/plain", static_cast<uint32_t>(body.size())) && !stream.write(body.data(), body.size()))
            reason = NPRES_NETWORK_ERR;
        stream.finish(reason);
    } else {
        stream.finish(NPRES_DONE);  // nothing returned: no stream
    }
}

Bridge::Fetch* Bridge::openFetch(const json& message, const char* op) {
    int64_t id = 0;
    if (!integer(message, "request", id)) {
        refuse(kBadMessage, "bad message", "refused", op);
        return nullptr;
    }
    auto it = m_fetches.find(static_cast<uint64_t>(id));
    if (it == m_fetches.end()) {
        if (m_dropped.count(static_cast<uint64_t>(id)) == 0) refuse(kUnknownRequest, "unknown request", "request", id);
        return nullptr;
    }
    return &it->second;
}

void Bridge::response(const json& message) {
    Fetch* fetch = openFetch(message, "response");
    if (fetch == nullptr) return;
    int64_t status = 0;
    std::string type;
    uint64_t id = message["request"].get<uint64_t>();
    if (!integer(message, "status", status) || !text(message, "mimeType", type) || fetch->stream != nullptr)
        return refuse(kBadMessage, "bad message", "refused", "response");
    const Pending& request = fetch->request;
    fetch->stream = std::make_unique<NpapiHost::Stream>(*m_npapi, request.instance, request.url, request.notifyData,
                                                        request.notify);
    if (status < 200 || status > 299) {
        hostLog("fetch %s: status %lld", request.url.c_str(), static_cast<long long>(status));
        return endFetch(id, NPRES_NETWORK_ERR, true);
    }
    // The plug-in makes its package file while it opens the stream: note it, so that a body cut off
    // never leaves a partial file behind.
    std::map<std::string, std::string> before = openTemporaryFiles();
    bool opened = fetch->stream->open(type);
    for (const auto& [fd, path] : openTemporaryFiles())
        if (before.count(fd) == 0 || before[fd] != path) fetch->file = path;
    if (!opened) endFetch(id, NPRES_NETWORK_ERR, true);
}

void Bridge::data(const json& message) {
    Fetch* fetch = openFetch(message, "data");
    if (fetch == nullptr) return;
    std::string encoded;
    if (!text(message, "data", encoded) || fetch->stream == nullptr || !fetch->stream->opened())
        return refuse(kBadMessage, "bad message", "refused", "data");
    CString bytes = CRFCBase64::Decode(encoded.c_str());
    if (!fetch->stream->write(bytes, static_cast<size_t>(bytes.GetLength())))
        endFetch(message["request"].get<uint64_t>(), NPRES_NETWORK_ERR, true);
}

void Bridge::end(const json& message) {
    Fetch* fetch = openFetch(message, "end");
    if (fetch == nullptr) return;
    auto ok = message.find("ok");
    if (ok == message.end() || !ok->is_boolean()) return refuse(kBadMessage, "bad message", "refused", "end");
    if (!ok->get<bool>())
        hostLog("fetch %s failed: %.200s", fetch->request.url.c_str(), message.value("error", json()).dump().c_str());
    bool whole = ok->get<bool>() && fetch->stream != nullptr && fetch->stream->opened();
    endFetch(message["request"].get<uint64_t>(), whole ? NPRES_DONE : NPRES_NETWORK_ERR, false);
}

// ---- the plug-in's requests ----------------------------------------------------------------------------

NPError Bridge::requestUrl(NPP instance, const char* url, const char* target, void* notifyData, bool notify) {
    std::string text = url != nullptr ? url : "";
    bool carried = startsWith(text, kJavascript) || isServiceUrl(text) || isWebUrl(text);
    if (target != nullptr || !carried) {
        hostLog("refused request for %.200s%s", text.c_str(), target != nullptr ? " (with a target)" : "");
        return NPERR_INVALID_URL;
    }
    m_queue.push_back({instance, text, notifyData, notify});
    return NPERR_NO_ERROR;
}

const char* Bridge::userAgentOf(NPP) { return m_userAgent.c_str(); }

void Bridge::run() {
    while (!m_queue.empty()) {
        Pending request = m_queue.front();
        m_queue.pop_front();
        if (alive(request.instance)) carry(request);
    }
}

void Bridge::carry(const Pending& request) {
    uint64_t id = m_nextId++;
    if (startsWith(request.url, kJavascript)) {
        PageCall call;
        std::string why;
        if (!parsePageCall(request.url, call, why)) {
            hostLog("page call not made (%s): %.200s", why.c_str(), request.url.c_str());
            NpapiHost::Stream(*m_npapi, request.instance, request.url, request.notifyData, request.notify)
                .finish(NPRES_NETWORK_ERR);
            return;
        }
        json arguments = json::array();
        for (const PageCall::Argument& a : call.arguments) arguments.push_back(a.isNumber ? json(a.number) : json(a.text));
        m_calls[id] = request;
        m_out.send({{"op", "call"}, {"call", id}, {"element", elementOf(request.instance)}, {"function", call.function},
                    {"args", arguments}});
    } else if (isServiceUrl(request.url)) {
        auto service = std::make_unique<ServiceRequest>(*m_npapi, request.instance, request.url, request.notifyData,
                                                        request.notify);
        if (service->start()) m_service.push_back(std::move(service));
    } else {
        m_fetches[id].request = request;
        m_out.send({{"op", "fetch"}, {"request", id}, {"element", elementOf(request.instance)}, {"url", request.url}});
    }
}

// Removes the file the plug-in was writing a body to that will not be finished.
void Bridge::removePartialFile(const Fetch& fetch) {
    if (!fetch.file.empty() && unlink(fetch.file.c_str()) == 0)
        hostLog("removed the partial package file %s", fetch.file.c_str());
}

void Bridge::endFetch(uint64_t id, NPReason reason, bool cancel) {
    auto it = m_fetches.find(id);
    if (it == m_fetches.end()) return;
    Fetch fetch = std::move(it->second);
    m_fetches.erase(it);
    const Pending& request = fetch.request;
    if (fetch.stream == nullptr)  // no answer yet: the request ends without a stream
        fetch.stream = std::make_unique<NpapiHost::Stream>(*m_npapi, request.instance, request.url,
                                                           request.notifyData, request.notify);
    fetch.stream->finish(reason);
    if (reason != NPRES_DONE) removePartialFile(fetch);
    if (cancel) {
        m_out.send({{"op", "cancel"}, {"request", id}});
        if (m_dropped.size() < kMaxDropped) m_dropped.insert(id);
    }
}

// Ends what the element still waits for, before its NPP_Destroy, as an NPAPI browser stops the loads of an
// element it destroys: its service requests and fetches end with a network error (the plug-in is told, and
// after a failed service request asks the service itself); its page calls not yet answered, and whatever
// the plug-in asks for meanwhile, are dropped.
void Bridge::endElement(NPP instance) {
    for (auto& service : m_service)
        if (service->instance() == instance) service->stop();
    m_service.erase(std::remove_if(m_service.begin(), m_service.end(),
                                   [&](const std::unique_ptr<ServiceRequest>& s) { return s->fd() < 0; }),
                    m_service.end());
    std::vector<uint64_t> fetches;
    for (const auto& [id, fetch] : m_fetches)
        if (fetch.request.instance == instance) fetches.push_back(id);
    for (uint64_t id : fetches) endFetch(id, NPRES_NETWORK_ERR, true);
    m_queue.erase(std::remove_if(m_queue.begin(), m_queue.end(), [&](const Pending& p) { return p.instance == instance; }),
                  m_queue.end());
    for (auto it = m_calls.begin(); it != m_calls.end();) {
        if (it->second.instance != instance) {
            ++it;
            continue;
        }
        if (m_dropped.size() < kMaxDropped) m_dropped.insert(it->first);
        it = m_calls.erase(it);
    }
}

int64_t Bridge::elementOf(NPP instance) const {
    for (const auto& [element, candidate] : m_elements)
        if (&candidate->npp == instance) return element;
    return -1;
}

bool Bridge::alive(NPP instance) const {
    for (const auto& [element, candidate] : m_elements)
        if (&candidate->npp == instance) return candidate->alive;
    return false;
}

// ---- the service sockets and the clock ---------------------------------------------------------------------

std::vector<int> Bridge::watched() const {
    std::vector<int> fds;
    for (const auto& s : m_service)
        if (s->fd() >= 0) fds.push_back(s->fd());
    return fds;
}

void Bridge::onReadable(int fd) {
    for (size_t i = 0; i < m_service.size(); ++i) {
        if (m_service[i]->fd() != fd) continue;
        if (!m_service[i]->onReadable()) m_service.erase(m_service.begin() + static_cast<long>(i));
        return;
    }
}

void Bridge::onTick(time_t now) {
    m_service.erase(std::remove_if(m_service.begin(), m_service.end(),
                                   [&](const std::unique_ptr<ServiceRequest>& s) { return !s->checkSilence(now); }),
                    m_service.end());
}

void Bridge::shutdown() {
    if (m_npapi == nullptr) return;
    for (auto& [element, instance] : m_elements)
        if (instance->alive) {
            endElement(&instance->npp);
            m_npapi->destroy(instance);
        }
    m_elements.clear();
    m_service.clear();
    m_npapi.reset();  // NP_Shutdown, unload
}
