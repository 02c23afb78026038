// Native messaging frames: a 4-byte length in native byte order, then that many bytes of UTF-8 JSON.
#ifndef PASSWAY_HOST_FRAMES_H
#define PASSWAY_HOST_FRAMES_H

#include <cstdint>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

constexpr int kProtocolVersion = 1;
constexpr char kHostVersion[] = PASSWAY_HOST_VERSION;  // the host's own version (the project's)
constexpr uint32_t kMaxFrameIn = 64u << 20;   // the browser sends no more than this in one message
constexpr uint32_t kMaxFrameOut = 1u << 20;   // the browser drops the connection past this

// Cuts the frames out of bytes fed in pieces as they arrive.
class FrameReader {
public:
    enum class Result { Frame, NeedMore, TooLarge };
    void feed(const char* data, size_t length) { m_buffer.append(data, length); }
    // Frame: `frame` holds the next frame's text. NeedMore: no whole frame yet. TooLarge: the next frame's
    // length (in `length`) passes kMaxFrameIn; the reader cannot go on.
    Result next(std::string& frame, uint32_t& length);
    // Bytes kept, read or not: at most about 1 MiB more than the frame being read.
    size_t held() const { return m_buffer.size(); }

private:
    std::string m_buffer;
    size_t m_start = 0;
};

// Writes messages as frames through `sink` (which writes all the bytes it is given, or returns false).
// Every message gets "version" (the protocol's) and "hostVersion". One whose frame would pass kMaxFrameOut is sent as "part" frames: slices
// of its JSON text, the last marked "last": true. Bytes that are not UTF-8 become U+FFFD.
class FrameWriter {
public:
    using Sink = std::function<bool(const char* data, size_t length)>;
    explicit FrameWriter(Sink sink) : m_sink(std::move(sink)) {}
    bool send(nlohmann::json message);

private:
    bool frame(const std::string& text);
    Sink m_sink;
    uint64_t m_nextPart = 1;
};

#endif
