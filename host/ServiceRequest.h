// One request of the plug-in to the local service, carried by the host itself over loopback: an HTTP/1.0
// GET whose reply body goes to the plug-in as a stream while it arrives. A request waits for its reply as
// long as the service holds it, as Chromium waits for a plug-in's request: the service may hold a reply
// until it has news for the page; the element's end (its page left, the tab closed) ends the request.
#ifndef PASSWAY_HOST_SERVICEREQUEST_H
#define PASSWAY_HOST_SERVICEREQUEST_H

#include <memory>
#include <string>

#include "NpapiHost.h"

// A reply whose status line and headers (through the blank line) pass this ends the request (network error):
// the service's own headers are a few hundred bytes.
constexpr size_t kMaxServiceHeaderBytes = 64u << 10;

// The request line's target for `url` as a browser sends it: path and query, the fragment left out, and
// the bytes a browser escapes in them percent-encoded (space, quotes, <, >, control and non-ASCII bytes).
std::string requestTarget(const std::string& url);

class ServiceRequest {
public:
    ServiceRequest(NpapiHost& host, NPP instance, std::string url, void* notifyData, bool notify);
    ~ServiceRequest();
    ServiceRequest(const ServiceRequest&) = delete;
    ServiceRequest& operator=(const ServiceRequest&) = delete;

    // Connects and sends the request. On failure (a refused connection) the request is finished with a
    // network error and no stream, and false is returned.
    bool start();
    // The socket to watch for input; -1 once finished.
    int fd() const { return m_fd; }
    // Takes what arrived; false once the request is over (the plug-in has been told).
    bool onReadable();
    NPP instance() const { return m_stream.instance(); }
    // Whether the request ended because the reply's headers passed kMaxServiceHeaderBytes.
    bool headersTooLong() const { return m_headersTooLong; }
    // Ends the request as a browser ends the loads of an element it destroys: the plug-in hears a network
    // error (and may ask the service itself, as it does in a browser).
    void stop();

private:
    void finish(NPReason reason);
    bool takeHeaders();

    std::string m_url;
    std::string m_logUrl;  // the URL as the log shows it
    NpapiHost::Stream m_stream;
    int m_fd = -1;
    std::string m_headers;
    bool m_headersDone = false;
    bool m_headersTooLong = false;
};

#endif
