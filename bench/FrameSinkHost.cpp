// passway-frame-sink: a stand-in for passway-host that only reads frames, for the transfer benchmark's
// baseline (the transport's own limit). It answers hello and create as the host does, asks the extension to
// fetch the element's hostrooturl + tunvourl, reads the body's frames without decoding them, and when the
// body has ended calls the page function benchTransferDone(frames, bytes of base64).
//
// An element with the attribute benchcalls="N" instead times page calls: the sink sends a call of the page
// function benchPing(i) and waits for its result, N times one after the other, then calls
// benchCallsDone(N, microseconds for the N round trips).
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "Frames.h"

using nlohmann::json;

namespace {

bool writeAll(const char* data, size_t length) {
    while (length > 0) {
        ssize_t n = write(1, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

std::string attribute(const json& attributes, const char* name) {
    for (const json& pair : attributes)
        if (pair.is_array() && pair.size() == 2 && pair[0] == name) return pair[1].get<std::string>();
    return "";
}

}  // namespace

int main() {
    using Clock = std::chrono::steady_clock;
    FrameWriter out(writeAll);
    FrameReader in;
    std::string frame;
    uint32_t length = 0;
    size_t frames = 0, bytes = 0;
    json element = 0;
    int64_t nextCall = 1, pingCall = 0;
    long pings = 0, pinged = 0;
    Clock::time_point pingStart;
    auto ping = [&] {
        pingCall = nextCall++;
        out.send({{"op", "call"}, {"call", pingCall}, {"element", element}, {"function", "benchPing"}, {"args", {pinged}}});
    };
    std::vector<char> buffer(1 << 20);
    for (ssize_t n; (n = read(0, buffer.data(), buffer.size())) > 0;) {
        in.feed(buffer.data(), static_cast<size_t>(n));
        while (in.next(frame, length) == FrameReader::Result::Frame) {
            if (frame.compare(0, 14, "{\"op\":\"data\",") == 0 || frame.find("\"op\":\"data\"") != std::string::npos) {
                ++frames;
                bytes += frame.size();
                continue;
            }
            json message = json::parse(frame, nullptr, false);
            if (message.is_discarded()) continue;
            std::string op = message.value("op", "");
            if (op == "hello") {
                out.send({{"op", "ready"}, {"plugin", "frame sink"}, {"name", "frame sink"}, {"description", ""}});
            } else if (op == "create") {
                const json& attributes = message["attributes"];
                element = message["element"];
                frames = bytes = 0;  // the tab's host lives on across page loads: each element counts its own
                out.send({{"op", "created"}, {"element", message["element"]}, {"result", 0}});
                pings = atol(attribute(attributes, "benchcalls").c_str());
                pinged = 0;
                std::string url = attribute(attributes, "hostrooturl") + attribute(attributes, "tunvourl");
                if (pings > 0) {
                    pingStart = Clock::now();
                    ping();
                } else if (!url.empty()) {
                    out.send({{"op", "fetch"}, {"request", nextCall++}, {"element", element}, {"url", url}});
                }
            } else if (op == "result" && pings > 0 && message.value("call", int64_t(0)) == pingCall) {
                if (++pinged < pings) {
                    ping();
                } else {
                    auto spent = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - pingStart);
                    pings = 0;
                    out.send({{"op", "call"}, {"call", nextCall++}, {"element", element}, {"function", "benchCallsDone"},
                              {"args", {pinged, spent.count()}}});
                }
            } else if (op == "end") {
                out.send({{"op", "call"}, {"call", nextCall++}, {"element", element}, {"function", "benchTransferDone"},
                          {"args", {frames, bytes}}});
            }
        }
    }
    return 0;
}
