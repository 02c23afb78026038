// Native messaging frames: cut from input that arrives in any pieces, and never written past 1 MiB.
#include <gtest/gtest.h>

#include "Frames.h"

namespace {

std::string framed(const std::string& text, uint32_t length) {
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + text;
}

TEST(Frames, AreCutFromInputArrivingAByteAtATimeUpToTheLargestABrowserSends) {
    std::string input = framed("{\"op\":\"a\"}", 10) + framed("", 0) + framed("[1]", 3) + framed("", kMaxFrameIn);
    FrameReader reader;
    std::vector<std::string> frames;
    std::string frame;
    uint32_t length = 0;
    for (char c : input) {
        reader.feed(&c, 1);
        while (reader.next(frame, length) == FrameReader::Result::Frame) frames.push_back(frame);
    }
    EXPECT_EQ((std::vector<std::string>{"{\"op\":\"a\"}", "", "[1]"}), frames);
    EXPECT_EQ(FrameReader::Result::NeedMore, reader.next(frame, length)) << "a frame of the largest size waits";
    reader = FrameReader();
    reader.feed(framed("", kMaxFrameIn + 1).data(), 4);
    EXPECT_EQ(FrameReader::Result::TooLarge, reader.next(frame, length));
    EXPECT_EQ(kMaxFrameIn + 1, length);
}

TEST(Frames, ALargeMessageGoesInPartsThatRebuildIt) {
    std::string bytes;
    FrameWriter writer([&](const char* data, size_t size) {
        bytes.append(data, size);
        return true;
    });
    // Quotes and backslashes grow when escaped; bytes that are not UTF-8 become U+FFFD.
    std::string text(3 << 19, '"');  // 3 MiB once escaped
    text[7] = '\\';
    text[8] = '\xff';
    ASSERT_TRUE(writer.send({{"op", "call"}, {"args", {text}}}));
    FrameReader reader;
    reader.feed(bytes.data(), bytes.size());
    std::string frame, whole;
    uint32_t length = 0;
    nlohmann::json part = nlohmann::json::object();
    while (reader.next(frame, length) == FrameReader::Result::Frame) {
        ASSERT_FALSE(part.value("last", false)) << "a part after the last";
        EXPECT_LE(frame.size(), kMaxFrameOut);
        part = nlohmann::json::parse(frame);
        EXPECT_EQ("part", part["op"]);
        whole += part["data"].get<std::string>();
    }
    EXPECT_TRUE(part.value("last", false));
    text.replace(8, 1, "\xef\xbf\xbd");
    nlohmann::json message = nlohmann::json::parse(whole);
    EXPECT_EQ(text, message["args"][0]);
    EXPECT_EQ(kProtocolVersion, message["version"]);
}

}  // namespace
