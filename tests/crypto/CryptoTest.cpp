// MD5 and HMAC-MD5 against their RFC answers, and CSignature: what verifies against the compiled-in test
// certificate, what is refused, and its HMAC with the preshared key.
#include <gtest/gtest.h>

#include "Encoding"
#include "Signature"
#include "TestSigning.h"

namespace {

unsigned char* bytes(const std::string& s) { return reinterpret_cast<unsigned char*>(const_cast<char*>(s.data())); }
std::string hex(const std::string& raw) { return std::string(BinToHex(bytes(raw), static_cast<int>(raw.size()), 0)); }

// RFC 1321 (no key: MD5, fed in pieces of every size among empty updates) and RFC 2104 (HMAC-MD5).
TEST(CMD5, KnownAnswersInAnyPiecesAndWithAnyKey) {
    const struct { const char* shows; std::string key, data; const char* digest; } rows[] = {
        {"nothing", "", "", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "", "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"the alphabet", "", "abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"62 letters and digits", "", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"80 digits", "", "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {"HMAC, 16-byte key", std::string(16, '\x0b'), "Hi There", "9294727a3638bb1c13f48ef8158bfc9d"},
        {"HMAC, short key", "Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {"HMAC, 50 bytes", std::string(16, '\xaa'), std::string(50, '\xdd'), "56be34521d144c88dbb8c733f0e8b3f6"},
        {"HMAC, a 64-byte key as it is", std::string(64, 'k'), "m", "6411ef0a1a2b26701e4eac25e07d2702"},
    };
    for (const auto& row : rows) {
        std::string digest(16, '\0');
        CMD5 md5;
        for (size_t piece = 1; row.key.empty() && piece <= row.data.size() + 1; ++piece) {
            md5.Init();
            for (size_t at = 0; at < row.data.size(); at += piece, md5.Update(nullptr, 1), md5.Update(bytes(row.data), 0))
                md5.Update(bytes(row.data) + at, static_cast<int>(std::min(piece, row.data.size() - at)));
            md5.Final(bytes(digest));
            ASSERT_EQ(row.digest, hex(digest)) << row.shows << " in pieces of " << piece;
        }
        if (!row.key.empty())
            CHMAC(&md5, bytes(row.key), int(row.key.size())).Sign(bytes(row.data), int(row.data.size()), bytes(digest), 16);
        EXPECT_EQ(row.digest, hex(digest)) << row.shows;
    }
}

// A key of no or more than 64 bytes, too little room for the output, or a hash of no length stop the process.
TEST(CHMACDeathTest, LengthsAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct NoLength : CMD5 { int HashLengthBits() override { return 0; } } noLength;
    CMD5 md5;
    unsigned char key[65] = {}, out[16];
    EXPECT_DEATH(CHMAC(&md5, key, 0), "keyLength > 0");
    EXPECT_DEATH(CHMAC(&md5, key, 65), "keyLength <= 64");
    EXPECT_DEATH(CHMAC(&md5, key, 64).Sign(key, 1, out, 15), "outLength >= GetLengthBytes");
    EXPECT_DEATH(CHMAC(&noLength, key, 64).Sign(key, 1, out, 16), "digestLength > 0");
}

TEST(CSignature, VerifiesExactlyTheTestKeysSignatureOfTheDigest) {
    const std::string digest = opensslMd5("package"), signature = signDigest("test-signing-key.pem", digest);
    std::string flipped = signature, broken = opensslBase64(signature);
    flipped[100] ^= 1;
    const struct { const char* shows; std::string signature, digest; bool verifies; } rows[] = {
        {"the test key's", signature, digest, true},
        {"another key's", signDigest("test-other-key.pem", digest), digest, false},
        {"over SHA-1", signDigest("test-signing-key.pem", std::string(20, 'x'), "SHA1"), std::string(20, 'x'), false},
        {"with a flipped bit", flipped, digest, false},
        {"of another digest", signature, opensslMd5("packagf"), false},
        {"empty", "", digest, false},
    };
    CSignature check;
    for (const auto& row : rows)
        EXPECT_EQ(row.verifies, check.VerifySignature(opensslBase64(row.signature).c_str(), opensslBase64(row.digest).c_str()))
            << row.shows;
    EXPECT_TRUE(check.VerifySignature(broken.insert(64, "\r\n").c_str(), opensslBase64(digest).c_str())) << "line breaks";
    // Decrypted, a signature shows its DigestInfo (MD5's prefix, then the digest); longer blocks never.
    EXPECT_EQ("3020300c06082a864886f70d020505000410" + hex(digest),
              std::string(check.DecryptSignature(opensslBase64(signature).c_str())));
    std::string sha512 = signDigest("test-signing-key.pem", std::string(64, 'x'), "SHA512");
    EXPECT_EQ("", std::string(check.DecryptSignature(opensslBase64(sha512).c_str())));
    EXPECT_EQ("", std::string(check.DecryptSignature("AAAA")));
    // HMAC-MD5 with the preshared key (tests/data/test-preshared.key), as base64.
    EXPECT_EQ("e8M4r4ZTlSAeKZJXjEIhIw==", std::string(check.Sign("session=1")));
}

}  // namespace
