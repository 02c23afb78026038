#include "FakeService.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

FakeService::FakeService(int port) : m_reply([](const std::string&) { return std::string("OK"); }) {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int yes = 1;
    setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(m_listener, 16) != 0) {
        close(m_listener);
        m_listener = -1;
        return;
    }
    m_thread = std::thread([this] { serve(); });
}

FakeService::~FakeService() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_listener >= 0) close(m_listener);
    for (int fd : m_held) close(fd);
}

void FakeService::setReply(Reply reply) {
    std::lock_guard<std::mutex> hold(m_mutex);
    m_reply = std::move(reply);
}

void FakeService::setRawReply(const std::string& raw) {
    std::lock_guard<std::mutex> hold(m_mutex);
    m_raw = raw;
}

std::vector<std::string> FakeService::requests() const {
    std::lock_guard<std::mutex> hold(m_mutex);
    return m_requests;
}

void FakeService::serve() {
    while (!m_stop) {
        struct pollfd waiting = {m_listener, POLLIN, 0};
        if (poll(&waiting, 1, 50) <= 0) continue;
        int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        std::string request;
        char buffer[65536];
        // Searches only what arrived since the last look (and the three bytes before it): linear in the request.
        for (size_t searched = 0; request.find("\r\n\r\n", searched) == std::string::npos;) {
            searched = request.size() > 3 ? request.size() - 3 : 0;
            struct pollfd readable = {fd, POLLIN, 0};
            if (poll(&readable, 1, 2000) <= 0) break;
            ssize_t n = read(fd, buffer, sizeof buffer);
            if (n <= 0) break;
            request.append(buffer, static_cast<size_t>(n));
        }
        // Take whatever else the client sent with its request (the direct query pads to 1000 bytes), so
        // that closing the connection does not reset it before the client reads the answer.
        for (struct pollfd more = {fd, POLLIN, 0}; poll(&more, 1, 0) > 0;) {
            ssize_t n = read(fd, buffer, sizeof buffer);
            if (n <= 0) break;
        }
        std::string line = request.substr(0, request.find("\r\n"));
        std::string response;
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            m_requests.push_back(line);
            if (m_silent) {
                m_held.push_back(fd);
                continue;
            }
            if (!m_raw.empty()) {
                response = m_raw;
            } else {
                std::string body = m_reply(line);
                response = "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                           std::to_string(body.size()) + "\r\n\r\n" + body;
            }
        }
        for (size_t sent = 0; sent < response.size();) {
            ssize_t n = write(fd, response.data() + sent, response.size() - sent);
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        close(fd);
    }
}
