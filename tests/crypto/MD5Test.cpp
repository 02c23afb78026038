// CMD5: the RFC 1321 test suite, chunked input against OpenSSL, and the reset rules.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Encoding"
#include "MD5"
#include "TestSeed.h"
#include "TestSigning.h"

namespace {

std::string hex(const unsigned char* digest) { return std::string(BinToHex(digest, 16, 0)); }

std::string md5(const std::string& data) {
    CMD5 md5;
    unsigned char digest[16];
    md5.HashBuffer(digest, reinterpret_cast<unsigned char*>(const_cast<char*>(data.data())),
                   static_cast<int>(data.size()));
    return hex(digest);
}

TEST(CMD5, Rfc1321TestSuite) {
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5(""));
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", md5("a"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5("abc"));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", md5("message digest"));
    EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", md5("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f",
              md5("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
    EXPECT_EQ("57edf4a22be3c955ac49da2e2107b67a",
              md5("12345678901234567890123456789012345678901234567890123456789012345678901234567890"));
    EXPECT_EQ(128, CMD5().HashLengthBits());
}

TEST(CMD5, AnyChunkingGivesOpenSslsDigest) {
    std::mt19937 rng(testSeed());
    for (int n = 0; n < 200; ++n) {
        std::string data(rng() % 3000, '\0');
        for (char& c : data) c = static_cast<char>(rng());
        CMD5 md5;
        for (size_t at = 0; at < data.size();) {
            size_t chunk = std::min<size_t>(rng() % 150, data.size() - at);
            md5.Update(reinterpret_cast<unsigned char*>(&data[at]), static_cast<int>(chunk));
            at += chunk;
        }
        unsigned char digest[16];
        md5.Final(digest);
        ASSERT_EQ(opensslMd5(data), std::string(reinterpret_cast<char*>(digest), 16)) << data.size() << " bytes";
    }
}

TEST(CMD5, FinalNeedsInitBeforeReuseAndEmptyUpdatesChangeNothing) {
    CMD5 md5;
    md5.Update(nullptr, 10);
    unsigned char x = 'x';
    md5.Update(&x, 0);
    md5.Update(&x, -1);
    unsigned char digest[16];
    md5.Final(digest);
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", hex(digest));
    md5.Final(digest);
    EXPECT_NE("d41d8cd98f00b204e9800998ecf8427e", hex(digest)) << "Final zeroes the state; it does not reset";
    md5.Init();
    md5.Final(digest);
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", hex(digest));
}

}  // namespace
