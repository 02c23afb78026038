// Native messaging frames: cut from input that arrives in any pieces, and never written past 1 MiB.
#include <gtest/gtest.h>

#include "Frames.h"

namespace {

// A message of 3 MiB once escaped goes in parts under the limit that, cut again from bytes arriving one at a
// time, rebuild it; an empty frame follows, then one longer than a browser sends, which stops the reader.
TEST(Frames, ALargeMessageGoesInPartsThatRebuildItAndAnOverlongFrameStopsTheReader) {
    std::string bytes, frame, whole, text(3 << 19, '"');
    FrameWriter writer([&](const char* data, size_t size) { return !bytes.append(data, size).empty(); });
    ASSERT_TRUE(writer.send({{"op", "call"}, {"args", {text}}}));
    uint32_t length = kMaxFrameIn + 1;
    bytes += std::string(4, '\0') + std::string(reinterpret_cast<char*>(&length), sizeof length);
    FrameReader reader;
    std::vector<std::string> frames;
    for (char c : bytes)
        for (reader.feed(&c, 1); reader.next(frame, length) == FrameReader::Result::Frame;) frames.push_back(frame);
    EXPECT_EQ(FrameReader::Result::TooLarge, reader.next(frame, length));
    EXPECT_EQ(kMaxFrameIn + 1, length);
    ASSERT_EQ("", frames.back()) << "the empty frame";
    for (size_t i = 0; i + 1 < frames.size(); ++i) {
        nlohmann::json part = nlohmann::json::parse(frames[i]);
        EXPECT_LE(frames[i].size(), kMaxFrameOut);
        EXPECT_EQ(i + 2 == frames.size(), part.value("last", false)) << "only the last part says so";
        whole += part["data"].get<std::string>();
    }
    EXPECT_EQ(text, nlohmann::json::parse(whole)["args"][0]);
}

}  // namespace
