#include "FakeBrowser.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>

static bool isPageCall(const std::string& url) {
    return url.rfind("javascript:", 0) == 0;
}

FakeBrowser::Instance* FakeBrowser::create(const Parameters& parameters, NPError* result) {
    Instance* instance = m_host.create(parameters, result);
    if (!instance->alive) forget(instance);
    return instance;
}

NPError FakeBrowser::destroy(Instance* instance) {
    NPError error = m_host.destroy(instance);
    forget(instance);
    return error;
}

void FakeBrowser::forget(Instance* instance) {
    for (Request& request : m_queue)
        if (request.instance == &instance->npp) request.instance = nullptr;  // the element is gone
}

NPError FakeBrowser::requestUrl(NPP instance, const char* url, const char* target, void* notifyData,
                                bool notify) {
    std::string text = url != nullptr ? url : "";
    if (quiet && isPageCall(text)) return NPERR_NO_ERROR;
    if (!quiet) m_calls.push_back({notify ? "geturlnotify" : "geturl", text});
    if (!refused.empty() && text.rfind(refused, 0) == 0) return refusal;
    if (target == nullptr) m_queue.push_back({instance, text, notifyData, notify});
    return NPERR_NO_ERROR;
}

std::vector<std::string> FakeBrowser::urls(bool pageCalls) const {
    std::vector<std::string> urls;
    for (const Call& c : m_calls)
        if (c.function.rfind("geturl", 0) == 0 && isPageCall(c.url) == pageCalls) urls.push_back(c.url);
    return urls;
}

// "http://127.0.0.1:PORT/path" over a socket (HTTP/1.0): the reply's body, as text/plain (all the local
// service sends), none on a network error.
std::optional<FakeBrowser::Reply> FakeBrowser::fetch(const std::string& url) {
    auto served = m_served.find(url);
    if (served != m_served.end()) return served->second;
    if (failNetwork || url.rfind("http://", 0) != 0) return std::nullopt;
    size_t slash = url.find('/', 7), colon = url.find(':', 7);
    std::string path = slash == std::string::npos ? "/" : url.substr(slash);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(colon < slash ? atoi(url.c_str() + colon + 1) : 80));
    inet_pton(AF_INET, url.substr(7, std::min(colon, slash) - 7).c_str(), &address.sin_addr);
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string request = "GET " + path + " HTTP/1.0\r\n\r\n", response;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        write(fd, request.data(), request.size()) > 0) {
        char buffer[65536];
        ssize_t n;
        // A server silent for five seconds ends the request as it stands.
        for (pollfd readable = {fd, POLLIN, 0};
             poll(&readable, 1, 5000) > 0 && (n = read(fd, buffer, sizeof buffer)) > 0;)
            response.append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    size_t end = response.find("\r\n\r\n");
    if (end == std::string::npos) return std::nullopt;
    return Reply{"text/plain", std::make_shared<const std::string>(response.substr(end + 4))};
}

void FakeBrowser::pump(int limit) {
    for (int done = 0; done < limit && !m_queue.empty();) {
        Request request = m_queue.front();
        m_queue.pop_front();
        if (request.instance == nullptr) continue;  // its page is gone
        ++done;
        std::optional<Reply> reply;
        if (isPageCall(request.url)) {
            // "javascript:name(argument)": a single-quoted argument loses its quotes.
            std::string call = request.url.substr(11), argument;
            size_t open = call.find('('), close = call.rfind(')');
            if (open != std::string::npos && close != std::string::npos && close > open) {
                argument = call.substr(open + 1, close - open - 1);
                if (argument.size() >= 2 && argument.front() == '\'' && argument.back() == '\'')
                    argument = argument.substr(1, argument.size() - 2);
                call.resize(open);
            }
            if (std::optional<std::string> value = page(call, argument))
                reply = Reply{"text/plain", std::make_shared<const std::string>(*value)};
        } else {
            reply = fetch(request.url);
        }
        NpapiHost::Stream stream(m_host, request.instance, request.url, request.notifyData, request.notify);
        NPReason reason = reply || isPageCall(request.url) ? NPRES_DONE : NPRES_NETWORK_ERR;
        if (reply && stream.open(reply->first, static_cast<uint32_t>(reply->second->size()))) {
            const std::string& body = *reply->second;
            size_t end = cutAfterBytes > 0 && cutAfterBytes < body.size() ? cutAfterBytes : body.size();
            bool written = stream.write(body.data(), end, static_cast<size_t>(std::max(chunkSize, 1)));
            reason = !written ? NPRES_NETWORK_ERR : end < body.size() ? cutReason : NPRES_DONE;
        }
        stream.finish(reason);
    }
}
