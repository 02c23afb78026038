// passway-frame-sink: a stand-in for passway-host that only reads frames, for the transfer benchmark's
// baseline (the transport's own limit). It answers hello and create as the host does, asks the extension to
// fetch the element's hostrooturl + tunvourl, reads the body's frames without decoding them, and when the
// body has ended calls the page function benchTransferDone(frames, bytes of base64).
#include <cerrno>
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
    FrameWriter out(writeAll);
    FrameReader in;
    std::string frame;
    uint32_t length = 0;
    size_t frames = 0, bytes = 0;
    json element = 0;
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
                out.send({{"op", "created"}, {"element", message["element"]}, {"result", 0}});
                std::string url = attribute(attributes, "hostrooturl") + attribute(attributes, "tunvourl");
                if (!url.empty()) out.send({{"op", "fetch"}, {"request", 1}, {"element", message["element"]}, {"url", url}});
            } else if (op == "end") {
                out.send({{"op", "call"}, {"call", 1}, {"element", element}, {"function", "benchTransferDone"},
                          {"args", {frames, bytes}}});
            }
        }
    }
    return 0;
}
