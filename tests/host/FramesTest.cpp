// Native messaging frames: cut from input that arrives in any pieces, and never written past 1 MiB.
#include <gtest/gtest.h>

#include <cstring>

#include "Frames.h"

namespace {

std::string framed(const std::string& text) {
    uint32_t length = static_cast<uint32_t>(text.size());
    return std::string(reinterpret_cast<const char*>(&length), sizeof length) + text;
}

TEST(Frames, AreCutFromInputArrivingAByteAtATime) {
    std::string input = framed("{\"op\":\"a\"}") + framed("") + framed("[1]");
    FrameReader reader;
    std::vector<std::string> frames;
    std::string frame;
    uint32_t length = 0;
    for (char c : input) {
        reader.feed(&c, 1);
        while (reader.next(frame, length) == FrameReader::Result::Frame) frames.push_back(frame);
    }
    EXPECT_EQ((std::vector<std::string>{"{\"op\":\"a\"}", "", "[1]"}), frames);
}

TEST(Frames, AFrameLongerThanABrowserSendsStopsTheReader) {
    FrameReader reader;
    uint32_t length = kMaxFrameIn + 1;
    reader.feed(reinterpret_cast<const char*>(&length), sizeof length);
    std::string frame;
    uint32_t seen = 0;
    EXPECT_EQ(FrameReader::Result::TooLarge, reader.next(frame, seen));
    EXPECT_EQ(length, seen);
}

TEST(Frames, ALargeMessageGoesInPartsThatRebuildIt) {
    std::vector<std::string> written;
    FrameWriter writer([&](const char* data, size_t size) {
        static std::string pending;
        pending.append(data, size);
        uint32_t length;
        if (pending.size() >= sizeof length) {
            memcpy(&length, pending.data(), sizeof length);
            if (pending.size() == sizeof length + length) {
                written.push_back(pending.substr(sizeof length));
                pending.clear();
            }
        }
        return true;
    });
    // Quotes and backslashes grow when escaped; bytes that are not UTF-8 become U+FFFD.
    std::string text(3 << 19, '"');  // 3 MiB once escaped
    text[7] = '\\';
    text[8] = '\xff';
    ASSERT_TRUE(writer.send({{"op", "call"}, {"args", {text}}}));
    ASSERT_GT(written.size(), 1u);
    std::string whole;
    for (size_t i = 0; i < written.size(); ++i) {
        EXPECT_LE(written[i].size(), kMaxFrameOut);
        nlohmann::json part = nlohmann::json::parse(written[i]);
        EXPECT_EQ("part", part["op"]);
        EXPECT_EQ(i + 1 == written.size(), part.value("last", false));
        whole += part["data"].get<std::string>();
    }
    nlohmann::json message = nlohmann::json::parse(whole);
    std::string expected = text;
    expected.replace(8, 1, "\xef\xbf\xbd");
    EXPECT_EQ(expected, message["args"][0]);
    EXPECT_EQ(kProtocolVersion, message["version"]);
}

}  // namespace
