#include "FakeBrowser.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

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

FakeBrowser::FakeBrowser(const std::string& pluginPath) : m_host(pluginPath, *this) {
    getMIMEDescription = m_host.getMIMEDescription;
    getValue = m_host.getValue;
}

FakeBrowser::~FakeBrowser() = default;

NPError FakeBrowser::destroy(Instance* instance) {
    NPError error = m_host.destroy(instance);
    for (auto& request : m_queue)
        if (request.instance == &instance->npp) request.instance = nullptr;  // the page is gone
    return error;
}

NPError FakeBrowser::requestUrl(NPP instance, const char* url, const char* target, void* notifyData, bool notify) {
    std::string text = url != nullptr ? url : "";
    if (quiet && text.rfind("javascript:", 0) == 0) return NPERR_NO_ERROR;
    if (!quiet) record({notify ? "geturlnotify" : "geturl", text, notifyData, instance});
    NPError refused = refuse(text);
    if (refused != NPERR_NO_ERROR) return refused;
    if (target == nullptr) m_queue.push_back({instance, text, notifyData, notify});
    return NPERR_NO_ERROR;
}

const char* FakeBrowser::userAgentOf(NPP instance) {
    record({"uagent", "", nullptr, instance});
    return userAgent.c_str();
}

void FakeBrowser::noteCall(const char* function, NPP instance, const std::string& detail, void* notifyData) {
    record({function, detail, notifyData, instance});
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
    NpapiHost::Stream stream(m_host, request.instance, request.url, request.notifyData, request.notify);
    const std::string& body = *reply.body;
    NPReason reason = NPRES_DONE;
    if (stream.open(reply.mimeType, static_cast<uint32_t>(body.size()))) {
        // The body arrives in pieces of chunkSize; a cut ends it early with cutReason.
        size_t end = cutAfterBytes > 0 && cutAfterBytes < body.size() ? cutAfterBytes : body.size();
        if (!stream.write(body.data(), end, static_cast<size_t>(std::max<int32_t>(chunkSize, 1))))
            reason = NPRES_NETWORK_ERR;
        else if (end < body.size())
            reason = cutReason;
    }
    stream.finish(reason);
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
            } else {
                NpapiHost::Stream(m_host, request.instance, request.url, request.notifyData, request.notify)
                    .finish(NPRES_DONE);
            }
            continue;
        }
        Reply reply = fetch(request.url);
        if (reply.ok)
            deliver(request, reply);
        else
            NpapiHost::Stream(m_host, request.instance, request.url, request.notifyData, request.notify)
                .finish(NPRES_NETWORK_ERR);
    }
}
