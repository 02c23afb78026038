// CHMAC over CMD5: the RFC 2104 vectors and the assertions that guard key and output lengths.
#include <gtest/gtest.h>

#include <string>

#include "Encoding"
#include "HMAC"
#include "MD5"

namespace {

std::string hmac(const std::string& key, const std::string& data) {
    CMD5 md5;
    CHMAC mac(&md5, reinterpret_cast<const unsigned char*>(key.data()), static_cast<int>(key.size()));
    unsigned char out[16];
    mac.Sign(reinterpret_cast<unsigned char*>(const_cast<char*>(data.data())), static_cast<int>(data.size()), out, 16);
    return std::string(BinToHex(out, 16, 0));
}

TEST(CHMAC, Rfc2104Vectors) {
    EXPECT_EQ("9294727a3638bb1c13f48ef8158bfc9d", hmac(std::string(16, '\x0b'), "Hi There"));
    EXPECT_EQ("750c783e6ab0b503eaa86e310a5db738", hmac("Jefe", "what do ya want for nothing?"));
    EXPECT_EQ("56be34521d144c88dbb8c733f0e8b3f6", hmac(std::string(16, '\xaa'), std::string(50, '\xdd')));
    // A 64-byte key is used as it is (RFC 2202 case 6 needs an 80-byte key, which is refused).
    EXPECT_EQ(hmac(std::string(64, 'k'), ""), hmac(std::string(64, 'k'), ""));
    EXPECT_NE(hmac(std::string(64, 'k'), "m"), hmac(std::string(63, 'k'), "m"));
}

TEST(CHMACDeathTest, KeyAndOutputLengthsAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CMD5 md5;
    unsigned char key[65] = {};
    EXPECT_DEATH(CHMAC(&md5, key, 0), "crypto/inc/HMAC:16: .*Assertion `keyLength > 0' failed");
    EXPECT_DEATH(CHMAC(&md5, key, 65), "crypto/inc/HMAC:17: .*Assertion `keyLength <= 64' failed");
    CHMAC mac(&md5, key, 64);
    unsigned char out[15];
    EXPECT_DEATH(mac.Sign(key, 1, out, 15), "crypto/inc/HMAC:39: .*Assertion `outLength >= GetLengthBytes\\(\\)' failed");
}

}  // namespace
