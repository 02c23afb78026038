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

}  // namespace

Bridge::Bridge(std::string pluginPath, FrameWriter& out, protocol::Limits limits)
    : m_pluginPath(std::move(pluginPath)), m_out(out), m_limits(limits) {}

Bridge::~Bridge() { shutdown(); }

NpapiHost::Usage Bridge::usage() const { return m_npapi != nullptr ? m_npapi->usage() : NpapiHost::Usage(); }

// ---- the extension's messages ----------------------------------------------------------------------------

void Bridge::refuse(Error code, const json& value, const std::string& about) {
    json message = protocol::errorMessage(code, value);
    const protocol::ErrorText& text = protocol::errorText(code);
    std::string shown = message[text.field].dump(-1, ' ', false, json::error_handler_t::replace);
    std::string context = about.empty() ? "" : " (" + about.substr(0, 200) + ")";
    hostLog("refused (%d %s): %s=%s%s", code, text.message, text.field, shown.c_str(), context.c_str());
    m_out.send(std::move(message));
}

// The package's data frames are nearly all of what arrives. The JSON library reads a long string a byte at a
// time and copies it twice, so the one shape the extension sends them in, {"op":"data","request":N,"data":"..."}
// with nothing but base64 digits in the text, is read here; any other shape goes to the library like every
// other message. The shape holds exactly the fields of "data" in protocol::operation(), nothing nested and
// nothing more. Returns false when the frame was not taken.
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
        m_out.send(protocol::errorMessage(protocol::kBadMessage, nullptr));
    }
}

// Nothing walks a message before it has passed the nesting and value limits, and nothing reads a field before the
// operation's table has checked it.
void Bridge::onMessage(const std::string& frame) {
    if (takeDataFrame(frame)) return;
    protocol::Shape shape = protocol::shapeOf(frame, protocol::kMaxDepth);
    if (shape.depth > protocol::kMaxDepth)
        return refuse(protocol::kTooDeep, protocol::kMaxDepth, std::to_string(frame.size()) + " bytes");
    if (shape.values > protocol::kMaxValues)
        return refuse(protocol::kTooManyValues, protocol::kMaxValues, std::to_string(frame.size()) + " bytes");
    json message = json::parse(frame, nullptr, false);
    if (message.is_discarded() || !message.is_object()) return refuse(protocol::kBadFrame, frame.size());
    auto opField = message.find("op");
    if (opField == message.end() || !opField->is_string())
        return refuse(protocol::kBadMessage, opField != message.end() ? protocol::shortValue(*opField) : json());
    const std::string& op = opField->get_ref<const std::string&>();
    const protocol::Operation* operation = protocol::operation(op);
    if (operation == nullptr) return refuse(protocol::kUnknownOp, protocol::shortValue(op));
    if (op != "hello" && !m_ready) return refuse(protocol::kNotReady, op);
    protocol::Error code = protocol::kBadMessage;
    std::string field;
    if (!protocol::checkFields(message, *operation, code, field))
        return code == protocol::kUnexpectedField ? refuse(code, field, op) : refuse(code, op, field);
    if (op == "hello") return hello(message);
    if (op == "create") return create(message);
    if (op == "destroy") return destroy(message);
    if (op == "result") return result(message);
    if (op == "response") return response(message);
    if (op == "data") return data(message);
    end(message);
}

void Bridge::hello(const json& message) {
    if (m_ready || m_pluginFailed) return refuse(protocol::kBadMessage, "hello", "a second hello");
    int64_t version = message["version"].get<int64_t>();
    if (version != kProtocolVersion) return refuse(protocol::kUnsupportedVersion, version);
    m_userAgent = message["userAgent"].get<std::string>();
    m_ready = true;
    m_npapi = std::make_unique<NpapiHost>(m_pluginPath, static_cast<NpapiHost::Handler&>(*this));
    NPError initialized = m_npapi->loaded() ? m_npapi->initialize() : NPERR_MODULE_LOAD_FAILED_ERROR;
    if (initialized != NPERR_NO_ERROR) {
        hostLog("cannot use the plug-in %s: %s (NP_Initialize %d)", m_pluginPath.c_str(),
                m_npapi->loadError().c_str(), initialized);
        m_pluginFailed = true;
        return refuse(protocol::kNoPlugin, m_pluginPath);
    }
    const char* name = "";
    const char* description = "";
    m_npapi->getValue(nullptr, NPPVpluginNameString, &name);
    m_npapi->getValue(nullptr, NPPVpluginDescriptionString, &description);
    std::string origin = message.contains("origin") ? urlForLog(message["origin"].get<std::string>()) : "?";
    hostLog("plug-in %s loaded for %.200s", m_pluginPath.c_str(), origin.c_str());
    const char* mimeDescription = m_npapi->getMIMEDescription != nullptr ? m_npapi->getMIMEDescription() : nullptr;
    m_out.send({{"op", "ready"}, {"plugin", m_pluginPath}, {"name", name ? name : ""},
                {"description", description ? description : ""},
                {"mimeDescription", mimeDescription ? mimeDescription : ""}});
}

void Bridge::create(const json& message) {
    int64_t element = message["element"].get<int64_t>();
    const json& attributes = message["attributes"];
    if (m_pluginFailed) return refuse(protocol::kNoPlugin, m_pluginPath);
    if (m_elements.count(element) != 0) return refuse(protocol::kUnknownElement, element, "made twice");
    if (m_elements.size() >= m_limits.elements)
        return refuse(protocol::kTooManyElements, m_limits.elements, "element " + std::to_string(element));
    size_t bytes = 0;
    for (const json& pair : attributes)
        bytes += pair[0].get_ref<const std::string&>().size() + pair[1].get_ref<const std::string&>().size();
    if (bytes > m_limits.attributeBytes)
        return refuse(protocol::kAttributesTooLarge, m_limits.attributeBytes,
                      "element " + std::to_string(element) + ": " + std::to_string(bytes) + " bytes");
    NpapiHost::Parameters parameters;
    parameters.reserve(attributes.size());
    for (const json& pair : attributes) parameters.emplace_back(pair[0].get<std::string>(), pair[1].get<std::string>());
    NPError created = NPERR_GENERIC_ERROR;
    NpapiHost::Instance* instance = m_npapi->create(parameters, &created);
    m_elements[element] = instance;
    if (instance->alive) m_npapi->setWindow(instance, NpapiHost::size(parameters, "width"), NpapiHost::size(parameters, "height"));
    m_out.send({{"op", "created"}, {"element", element}, {"result", created}});
}

void Bridge::destroy(const json& message) {
    int64_t element = message["element"].get<int64_t>();
    auto it = m_elements.find(element);
    if (it == m_elements.end()) return refuse(protocol::kUnknownElement, element);
    NpapiHost::Instance* instance = it->second;
    m_elements.erase(it);
    NPError destroyed = NPERR_NO_ERROR;
    if (instance->alive) {
        destroyed = destroyInstance(instance);
    } else {
        m_npapi->discard(instance);
    }
    m_out.send({{"op", "destroyed"}, {"element", element}, {"result", destroyed}});
}

void Bridge::result(const json& message) {
    int64_t id = message["call"].get<int64_t>();
    auto it = m_calls.find(static_cast<uint64_t>(id));
    if (it == m_calls.end()) {
        if (m_dropped.count(static_cast<uint64_t>(id)) == 0) refuse(protocol::kUnknownRequest, id, "result");
        return;
    }
    Pending call = it->second;
    m_calls.erase(it);
    NpapiHost::Stream stream(*m_npapi, call.instance, call.url, call.notifyData, call.notify);
    auto value = message.find("value");
    if (message.contains("error")) {
        hostLog("page call %s failed: %.200s", urlForLog(call.url).c_str(),
                message["error"].get_ref<const std::string&>().c_str());
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

Bridge::Fetch* Bridge::openFetch(const json& message) {
    int64_t id = message["request"].get<int64_t>();
    auto it = m_fetches.find(static_cast<uint64_t>(id));
    if (it == m_fetches.end()) {
        if (m_dropped.count(static_cast<uint64_t>(id)) == 0)
            refuse(protocol::kUnknownRequest, id, message["op"].get<std::string>());
        return nullptr;
    }
    return &it->second;
}

void Bridge::response(const json& message) {
    Fetch* fetch = openFetch(message);
    if (fetch == nullptr) return;
    int64_t status = message["status"].get<int64_t>();
    uint64_t id = message["request"].get<uint64_t>();
    if (fetch->stream != nullptr) return refuse(protocol::kBadMessage, "response", "a second response");
    const Pending& request = fetch->request;
    fetch->stream = std::make_unique<NpapiHost::Stream>(*m_npapi, request.instance, request.url, request.notifyData,
                                                        request.notify);
    if (status < 200 || status > 299) {
        hostLog("fetch %s: status %lld", urlForLog(request.url).c_str(), static_cast<long long>(status));
        return endFetch(id, NPRES_NETWORK_ERR, true);
    }
    // The plug-in makes its package file while it opens the stream: note it, so that a body cut off
    // never leaves a partial file behind.
    std::map<std::string, std::string> before = openTemporaryFiles();
    bool opened = fetch->stream->open(message["mimeType"].get<std::string>());
    for (const auto& [fd, path] : openTemporaryFiles())
        if (before.count(fd) == 0 || before[fd] != path) fetch->file = path;
    if (!opened) endFetch(id, NPRES_NETWORK_ERR, true);
}

void Bridge::data(const json& message) {
    Fetch* fetch = openFetch(message);
    if (fetch == nullptr) return;
    if (fetch->stream == nullptr || !fetch->stream->opened())
        return refuse(protocol::kBadMessage, "data", "no stream open");
    CString bytes = CRFCBase64::Decode(message["data"].get_ref<const std::string&>().c_str());
    if (!fetch->stream->write(bytes, static_cast<size_t>(bytes.GetLength())))
        endFetch(message["request"].get<uint64_t>(), NPRES_NETWORK_ERR, true);
}

void Bridge::end(const json& message) {
    Fetch* fetch = openFetch(message);
    if (fetch == nullptr) return;
    bool ok = message["ok"].get<bool>();
    if (!ok)
        hostLog("fetch %s failed: %.200s", urlForLog(fetch->request.url).c_str(),
                message.contains("error") ? message["error"].get_ref<const std::string&>().c_str() : "");
    bool whole = ok && fetch->stream != nullptr && fetch->stream->opened();
    endFetch(message["request"].get<uint64_t>(), whole ? NPRES_DONE : NPRES_NETWORK_ERR, false);
}

// ---- the plug-in's requests ----------------------------------------------------------------------------

// Called from inside the plug-in: nothing may be thrown back into it.
NPError Bridge::requestUrl(NPP instance, const char* url, const char* target, void* notifyData, bool notify) {
    try {
        std::string text = url != nullptr ? url : "";
        bool carried = startsWith(text, kJavascript) || isServiceUrl(text) || isWebUrl(text);
        if (target != nullptr || !carried) {
            hostLog("refused request for %.200s%s", urlForLog(text).c_str(),
                    target != nullptr ? " (with a target)" : "");
            return NPERR_INVALID_URL;
        }
        if (requestsInFlight() >= m_limits.requests) {
            refuse(protocol::kTooManyRequests, m_limits.requests, "request for " + urlForLog(text));
            return NPERR_OUT_OF_MEMORY_ERROR;
        }
        m_queue.push_back({instance, text, notifyData, notify});
        return NPERR_NO_ERROR;
    } catch (const std::exception& e) {
        hostLog("a request of the plug-in could not be taken: %s", e.what());
        return NPERR_OUT_OF_MEMORY_ERROR;
    }
}

// Page calls and fetches the extension has not answered, service requests open, and requests not yet carried.
size_t Bridge::requestsInFlight() const {
    return m_calls.size() + m_fetches.size() + m_service.size() + m_queue.size();
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
            hostLog("page call not made (%s): %s", why.c_str(), urlForLog(request.url).c_str());
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
        if (request.url == TUNVO_SERVICE_URL "?CONNECT") noteServiceStarted(request.instance);
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
        if (!m_service[i]->onReadable()) {
            if (m_service[i]->headersTooLong()) refuse(protocol::kServiceHeadersTooLong, kMaxServiceHeaderBytes);
            m_service.erase(m_service.begin() + static_cast<long>(i));
        }
        return;
    }
}

void Bridge::setGuard(ServiceGuard* guard, std::string clientRoot) {
    m_guard = guard;
    m_clientRoot = std::move(clientRoot);
}

// The plug-in asks the service "?CONNECT" only right after it started the service itself: from then on its
// instance owns the service and stops it at its NPP_Destroy. The guard learns which process that is, and
// the extension that the element's session runs.
void Bridge::noteServiceStarted(NPP instance) {
    m_serviceOwner = instance;
    ServiceProcess service;
    if (m_guard != nullptr && runningService(m_clientRoot, service)) m_guard->owned(service);
    m_out.send({{"op", "session"}, {"element", elementOf(instance)}});
}

// NPP_Destroy of an element, after its loads have ended; the instance that owned the service has stopped it.
NPError Bridge::destroyInstance(NpapiHost::Instance* instance) {
    endElement(&instance->npp);
    NPError destroyed = m_npapi->destroy(instance);
    if (&instance->npp == m_serviceOwner) {
        m_serviceOwner = nullptr;
        if (m_guard != nullptr) m_guard->released();
    }
    return destroyed;
}

void Bridge::shutdown() {
    if (m_npapi == nullptr) return;
    for (auto& [element, instance] : m_elements)
        if (instance->alive) destroyInstance(instance);
    m_elements.clear();
    m_service.clear();
    m_npapi.reset();  // NP_Shutdown, unload
}
