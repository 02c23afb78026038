// passway-host's input: any bytes as native messaging frames, every frame decoded as a message of the
// extension (the plug-in cannot load here, so hello fails and the rest takes the refusal paths); then a
// message grown from the bytes: one of the ops in a valid form with a value of chosen depth and width put in
// as its op, one of its fields or a field more; and the same bytes read as a page call. Nothing may crash,
// and every page call read must name a plain function.
#include <cctype>

#include "Bridge.h"
#include "FuzzInput.h"
#include "HostLog.h"
#include "PageCall.h"

namespace {

// The ops in a valid form, each without its closing brace.
const char* const kMessages[] = {
    R"({"op":"hello","version":1,"userAgent":"x")",   R"({"op":"create","element":1,"attributes":[["a","b"]])",
    R"({"op":"destroy","element":1)",                 R"({"op":"result","call":1,"value":null)",
    R"({"op":"response","request":1,"status":200,"mimeType":"text/plain")",
    R"({"op":"data","request":1,"data":"QQ==")",     R"({"op":"end","request":1,"ok":false)",
    R"({"op":"part")",
};
const char* const kFields[] = {"op",    "version", "userAgent", "origin",  "element", "attributes", "call", "value",
                               "error", "request", "status",    "mimeType", "data",   "ok",         "x"};
const char* const kLeaves[] = {"\"text\"", "1", "-1.5", "null", "true", "[\"a\",\"b\"]", "[]", "{}", "\"\\\"[{\""};

// A value nested `depth` deep, each level an array or an object (by the bits of `shape`) holding `width`
// scalars beside the next level.
std::string grown(size_t depth, size_t width, const std::string& shape, const char* leaf) {
    std::string open, close;
    for (size_t level = 0; level < depth; ++level) {
        bool array = shape.empty() || ((static_cast<unsigned char>(shape[level % shape.size()]) >> (level % 8)) & 1);
        open += array ? "[" : "{";
        for (size_t i = 0; i < width; ++i) open += array ? "0," : "\"k" + std::to_string(i) + "\":0,";
        if (!array) open += "\"k\":";
        close += array ? "]" : "}";
    }
    return open + leaf + std::string(close.rbegin(), close.rend());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static FrameWriter out([](const char*, size_t) { return true; });
    static bool quiet = (setHostLogSink([](const std::string&) {}), true);
    (void)quiet;
    std::string bytes = asText(data, size);
    {
        Bridge bridge("/nonexistent/libtunvo_plugin.so", out);
        FrameReader reader;
        reader.feed(bytes.data(), bytes.size());
        std::string frame;
        uint32_t length = 0;
        while (reader.next(frame, length) == FrameReader::Result::Frame) {
            bridge.onFrame(frame);
            bridge.run();
        }
        bridge.onFrame(bytes);  // the whole input as one frame's text
    }
    if (size >= 5) {
        // Mostly a few levels, now and then thousands, and once in 256 inputs the 300,000 that once crashed the log.
        size_t depth = data[2] < 240   ? data[2] % 8
                       : data[2] < 255 ? static_cast<size_t>(data[2] - 239) * 500
                                       : 300000;
        const char* leaf = kLeaves[data[4] % (sizeof kLeaves / sizeof *kLeaves)];
        std::string value = grown(depth, data[3] % 4, bytes.substr(5, 16), leaf);
        std::string message = std::string(kMessages[data[0] % (sizeof kMessages / sizeof *kMessages)]) + ",\"" +
                              kFields[data[1] % (sizeof kFields / sizeof *kFields)] + "\":" + value + "}";
        Bridge bridge("/nonexistent/libtunvo_plugin.so", out);
        bridge.onFrame(R"({"op":"hello","version":1,"userAgent":"x"})");
        bridge.onFrame(message);
        bridge.run();
    }
    PageCall call;
    std::string why;
    if (parsePageCall("javascript:" + bytes, call, why)) {
        if (call.function.empty() || isdigit(static_cast<unsigned char>(call.function[0]))) __builtin_trap();
        if (call.arguments.size() > 1) __builtin_trap();
    }
    return 0;
}
