#include "FakeService.h"

#include <arpa/inet.h>
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
    if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listener, 16) != 0) {
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
}

void FakeService::setReply(Reply reply, bool raw) {
    std::lock_guard<std::mutex> hold(m_mutex);
    m_reply = std::move(reply);
    m_raw = raw;
}

std::vector<std::string> FakeService::requests() const {
    std::lock_guard<std::mutex> hold(m_mutex);
    return m_requests;
}

void FakeService::serve() {
    char buffer[65536];
    while (!m_stop) {
        pollfd waiting = {m_listener, POLLIN, 0};
        int fd = poll(&waiting, 1, 50) > 0 ? accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (fd < 0) continue;
        // Reads the request's head (searching only what is new), then whatever else came with it (the direct
        // query pads to 1000 bytes), so that closing does not reset the connection before the answer is read.
        std::string request, response;
        for (size_t searched = 0; request.find("\r\n\r\n", searched) == std::string::npos;) {
            searched = request.size() > 3 ? request.size() - 3 : 0;
            pollfd readable = {fd, POLLIN, 0};
            ssize_t n = poll(&readable, 1, 2000) > 0 ? read(fd, buffer, sizeof buffer) : 0;
            if (n <= 0) break;
            request.append(buffer, static_cast<size_t>(n));
        }
        for (pollfd more = {fd, POLLIN, 0}; poll(&more, 1, 0) > 0 && read(fd, buffer, sizeof buffer) > 0;) {
        }
        std::string line = request.substr(0, request.find("\r\n"));
        if (m_reset.exchange(false)) {
            const linger reset = {1, 0};
            setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            close(fd);
            continue;
        }
        {
            std::lock_guard<std::mutex> hold(m_mutex);
            m_requests.push_back(line);
            std::string body = m_reply(line);
            response = m_raw ? body
                             : "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                                   std::to_string(body.size()) + "\r\n\r\n" + body;
        }
        size_t held = m_holdAfter.empty() ? std::string::npos : response.find(m_holdAfter);
        size_t first = held == std::string::npos ? response.size() : held + m_holdAfter.size();
        for (ssize_t sent = 0, n; sent < static_cast<ssize_t>(response.size()); sent += n) {
            if (static_cast<size_t>(sent) == first)
                while (!m_released && !m_stop) usleep(5000);
            size_t end = static_cast<size_t>(sent) < first ? first : response.size();
            if ((n = write(fd, response.data() + sent, end - static_cast<size_t>(sent))) <= 0) break;
        }
        close(fd);
    }
}
