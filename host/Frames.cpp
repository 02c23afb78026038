// Cutting frames out of the input and writing messages as frames.
#include "Frames.h"

#include <cstring>

using nlohmann::json;

FrameReader::Result FrameReader::next(std::string& frame, uint32_t& length) {
    if (m_buffer.size() - m_start < sizeof length) return Result::NeedMore;
    memcpy(&length, m_buffer.data() + m_start, sizeof length);
    if (length > kMaxFrameIn) return Result::TooLarge;
    if (m_buffer.size() - m_start - sizeof length < length) return Result::NeedMore;
    frame.assign(m_buffer, m_start + sizeof length, length);
    m_start += sizeof length + length;
    if (m_start == m_buffer.size() || m_start > (1u << 20)) {  // drop what was read, now and then
        m_buffer.erase(0, m_start);
        m_start = 0;
    }
    return Result::Frame;
}

bool FrameWriter::frame(const std::string& text) {
    uint32_t length = static_cast<uint32_t>(text.size());
    char header[sizeof length];
    memcpy(header, &length, sizeof length);
    return m_sink(header, sizeof header) && m_sink(text.data(), text.size());
}

bool FrameWriter::send(json message) {
    message["version"] = kProtocolVersion;
    message["hostVersion"] = kHostVersion;
    std::string text = message.dump(-1, ' ', false, json::error_handler_t::replace);
    if (text.size() <= kMaxFrameOut) return frame(text);
    // ASCII slices (escapes for everything else), so that a slice can end anywhere; escaped again inside
    // "data" a slice at most doubles, which keeps each part under the limit.
    text = message.dump(-1, ' ', true, json::error_handler_t::replace);
    constexpr size_t kSlice = (kMaxFrameOut - 1024) / 2;
    uint64_t id = m_nextPart++;
    for (size_t at = 0; at < text.size(); at += kSlice) {
        json part = {{"op", "part"}, {"id", id}, {"data", text.substr(at, kSlice)}, {"version", kProtocolVersion},
                     {"hostVersion", kHostVersion}};
        if (at + kSlice >= text.size()) part["last"] = true;
        if (!frame(part.dump())) return false;
    }
    return true;
}
