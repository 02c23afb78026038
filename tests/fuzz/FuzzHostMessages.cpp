// passway-host's input: any bytes as native messaging frames, every frame decoded as a message of the
// extension (the plug-in cannot load here, so hello fails and the rest takes the refusal paths), and the
// same bytes read as a page call. Nothing may crash, and every page call read must name a plain function.
#include <cctype>

#include "Bridge.h"
#include "FuzzInput.h"
#include "HostLog.h"
#include "PageCall.h"

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
    PageCall call;
    std::string why;
    if (parsePageCall("javascript:" + bytes, call, why)) {
        if (call.function.empty() || isdigit(static_cast<unsigned char>(call.function[0]))) __builtin_trap();
        if (call.arguments.size() > 1) __builtin_trap();
    }
    return 0;
}
