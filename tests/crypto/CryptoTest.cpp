// MD5 and HMAC-MD5 against their RFC answers, and CSignature: what verifies against the compiled-in test
// certificate, what is refused, and its HMAC with the preshared key.
#include <gtest/gtest.h>

#include "Encoding"
#include "Signature"
#include "TestSupport.h"

namespace {

unsigned char* bytes(const std::string& s) { return reinterpret_cast<unsigned char*>(const_cast<char*>(s.data())); }
std::string hex(const std::string& raw) { return std::string(BinToHex(bytes(raw), static_cast<int>(raw.size()), 0)); }

// Known answers: MD5 (RFC 1321; the 80 bytes span two blocks) and HMAC-MD5 (RFC 2104, and a key of 64 bytes).
TEST(CMD5, KnownAnswersWithAndWithoutAKey) {
    const struct { std::string key, data; const char* digest; } rows[] = {
        {"", "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"", std::string(80, '1'), "7478ba1875f17511c12740431336a09e"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {std::string(64, 'k'), "m", "6411ef0a1a2b26701e4eac25e07d2702"},  // a key of 64 bytes is used as it is
    };
    for (const auto& row : rows) {
        std::string digest(16, '\0');
        CMD5 md5;
        md5.HashBuffer(bytes(digest), bytes(row.data), static_cast<int>(row.data.size()));
        if (!row.key.empty())
            CHMAC(&md5, bytes(row.key), int(row.key.size())).Sign(bytes(row.data), int(row.data.size()), bytes(digest), 16);
        EXPECT_EQ(row.digest, hex(digest)) << row.key << "/" << row.data;
    }
}

// A key of no bytes, too little room for the output or a digest longer than HMAC's room stop
// the process.
TEST(CHMACDeathTest, LengthsAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Wide : CMD5 { int HashLengthBits() override { return 1024; } } wide;
    unsigned char key[128] = {};
    EXPECT_DEATH(CHMAC(&wide, key, 0), "keyLength > 0");
    EXPECT_DEATH(CHMAC(&wide, key, 64).Sign(key, 1, key, 127), "outLength >= GetLengthBytes");
    EXPECT_DEATH(CHMAC(&wide, key, 64).Sign(key, 1, key, 128), "digestLength > 0 && digestLength <=");
}

TEST(CSignature, VerifiesExactlyTheTestKeysSignatureOfTheDigest) {
    const std::string digest = opensslMd5("package"), signature = signDigest("test-signing-key.pem", digest);
    const struct { const char* shows; std::string signature, digest; bool verifies; } rows[] = {
        {"the test key's", signature, digest, true},
        {"another key's", signDigest("test-other-key.pem", digest), digest, false},
        {"over SHA-1", signDigest("test-signing-key.pem", std::string(20, 'x'), "SHA1"), std::string(20, 'x'), false},
    };
    CSignature check;
    for (const auto& row : rows)
        EXPECT_EQ(row.verifies, check.VerifySignature(opensslBase64(row.signature).c_str(), opensslBase64(row.digest).c_str()))
            << row.shows;
    // Decrypted, a signature shows its DigestInfo: MD5's prefix, then the digest.
    EXPECT_EQ("3020300c06082a864886f70d020505000410" + hex(digest),
              std::string(check.DecryptSignature(opensslBase64(signature).c_str())));
    // HMAC-MD5 with the preshared key (tests/data/test-preshared.key), as base64.
    EXPECT_EQ("e8M4r4ZTlSAeKZJXjEIhIw==", std::string(check.Sign("session=1")));
}

}  // namespace
