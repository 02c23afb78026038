// Carrying a request to the local service over loopback.
#include "ServiceRequest.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include "HostLog.h"
#include "ServiceAddress.h"

namespace {

// Bytes a browser percent-encodes in the path and in the query of an http URL.
bool escapedInPath(unsigned char c) {
    return c <= 0x20 || c >= 0x7F || c == '"' || c == '<' || c == '>' || c == '`' || c == '{' || c == '}';
}
bool escapedInQuery(unsigned char c) { return c <= 0x20 || c >= 0x7F || c == '"' || c == '<' || c == '>' || c == '\''; }

}  // namespace

std::string requestTarget(const std::string& url) {
    size_t scheme = url.find("://");
    size_t start = scheme == std::string::npos ? 0 : url.find('/', scheme + 3);
    if (start == std::string::npos) return "/";
    std::string target = url.substr(start, url.find('#', start) - start);
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(target.size());
    bool inQuery = false;
    for (unsigned char c : target) {
        inQuery = inQuery || c == '?';
        if (inQuery ? escapedInQuery(c) : escapedInPath(c)) {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

ServiceRequest::ServiceRequest(NpapiHost& host, NPP instance, std::string url, void* notifyData, bool notify)
    : m_url(url), m_logUrl(urlForLog(url)), m_stream(host, instance, std::move(url), notifyData, notify) {}

ServiceRequest::~ServiceRequest() {
    if (m_fd >= 0) close(m_fd);
}

bool ServiceRequest::start() {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_fd < 0) {
        hostLog("service request %s: socket failed: %s", m_logUrl.c_str(), strerror(errno));
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(TUNVO_SERVICE_PORT);
    inet_pton(AF_INET, TUNVO_SERVICE_HOST, &address.sin_addr);
    // Loopback answers at once: connect and send blocking, then read without blocking.
    if (connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        hostLog("service request %s: connect failed: %s", m_logUrl.c_str(), strerror(errno));
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    std::string request = "GET " + requestTarget(m_url) + " HTTP/1.0\r\nHost: " TUNVO_SERVICE_HOST ":" +
                          std::to_string(TUNVO_SERVICE_PORT) + "\r\nAccept: */*\r\n\r\n";
    for (size_t sent = 0; sent < request.size();) {
        ssize_t n = send(m_fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            hostLog("service request %s: send failed: %s", m_logUrl.c_str(), strerror(errno));
            finish(NPRES_NETWORK_ERR);
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    fcntl(m_fd, F_SETFL, fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    return true;
}

// Reads the status line and the content type once the headers are whole, and opens the stream; what
// followed them is the body's beginning. False when the request ended here.
bool ServiceRequest::takeHeaders() {
    size_t end = m_headers.find("\r\n\r\n");
    // Without their end in the first kMaxServiceHeaderBytes, the headers are longer than that.
    if (end == std::string::npos ? m_headers.size() >= kMaxServiceHeaderBytes : end + 4 > kMaxServiceHeaderBytes) {
        hostLog("service request %s: headers longer than %zu bytes", m_logUrl.c_str(), kMaxServiceHeaderBytes);
        m_headersTooLong = true;
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    if (end == std::string::npos) return true;
    m_headersDone = true;
    int status = 0;
    if (sscanf(m_headers.c_str(), "HTTP/%*d.%*d %d", &status) != 1) status = 0;
    if (status < 200 || status > 299) {
        hostLog("service request %s: answered with status %d", m_logUrl.c_str(), status);
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    std::string type = "text/plain";
    for (size_t line = m_headers.find("\r\n"); line < end; line = m_headers.find("\r\n", line + 2)) {
        if (strncasecmp(m_headers.c_str() + line + 2, "Content-Type:", 13) != 0) continue;
        size_t from = m_headers.find_first_not_of(' ', line + 15);
        type = m_headers.substr(from, m_headers.find("\r\n", from) - from);
        break;
    }
    std::string body = m_headers.substr(end + 4);
    m_headers.clear();
    if (!m_stream.open(type)) {
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    if (!body.empty() && !m_stream.write(body.data(), body.size())) {
        finish(NPRES_NETWORK_ERR);
        return false;
    }
    return true;
}

bool ServiceRequest::onReadable() {
    char buffer[65536];
    for (;;) {
        ssize_t n = read(m_fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
        if (n < 0) {
            hostLog("service request %s: read failed: %s", m_logUrl.c_str(), strerror(errno));
            finish(NPRES_NETWORK_ERR);
            return false;
        }
        if (n == 0) {
            bool whole = m_headersDone;
            if (!whole) hostLog("service request %s: closed before its headers ended", m_logUrl.c_str());
            finish(whole ? NPRES_DONE : NPRES_NETWORK_ERR);
            return false;
        }
        if (!m_headersDone) {
            m_headers.append(buffer, static_cast<size_t>(n));
            if (!takeHeaders()) return false;
        } else if (!m_stream.write(buffer, static_cast<size_t>(n))) {
            finish(NPRES_NETWORK_ERR);
            return false;
        }
    }
}

void ServiceRequest::finish(NPReason reason) {
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    m_stream.finish(reason);
}

void ServiceRequest::stop() {
    if (m_fd >= 0) finish(NPRES_NETWORK_ERR);
}
