// A stand-in for the local VPN service: HTTP on 127.0.0.1:44444 (or another port), answering every
// request from a script and recording what it was asked. Runs on a thread of its own.
#ifndef PASSWAY_TESTS_FAKESERVICE_H
#define PASSWAY_TESTS_FAKESERVICE_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeService {
public:
    // The body for a request line ("GET /vpn.php?INFO HTTP/1.0"); the default answers "OK".
    using Reply = std::function<std::string(const std::string& requestLine)>;

    explicit FakeService(int port = 44444);
    ~FakeService();

    bool listening() const { return m_listener >= 0; }
    // With `raw`, what `reply` returns is sent as it is, not as the body of an HTTP response.
    void setReply(Reply reply, bool raw = false);
    // The request lines received so far, in order.
    std::vector<std::string> requests() const;
    // The next replies stop after the first `marker` in them (headers included), until release(): a service
    // that holds the rest of its reply until it has news.
    void holdAfter(const std::string& marker) { m_holdAfter = marker, m_released = false; }
    void release() { m_released = true; }
    // The next request is answered by resetting its connection.
    void resetNext() { m_reset = true; }

private:
    void serve();

    int m_listener = -1;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_released{false};
    std::atomic<bool> m_reset{false};
    std::string m_holdAfter;
    mutable std::mutex m_mutex;
    Reply m_reply;
    bool m_raw = false;
    std::vector<std::string> m_requests;
    std::thread m_thread;
};

#endif
