// MD5 and HMAC-MD5 against their RFC answers, and CSignature: what verifies against the compiled-in test
// certificate, what is refused, and its HMAC with the preshared key.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <openssl/crypto.h>

#include "Encoding"
#include "Signature"
#include "TestSupport.h"

namespace {

// OpenSSL allocates through these from the program's start, so that a test can make it fail, and count the
// blocks it holds.
std::atomic<bool> g_opensslFails{false};
std::atomic<long> g_opensslBlocks{0};
void* opensslMalloc(size_t n, const char*, int) {
    void* block = g_opensslFails ? nullptr : malloc(n);
    if (block != nullptr) ++g_opensslBlocks;
    return block;
}
// OpenSSL hands a replaced realloc the null block too (its own realloc would have made that a malloc), so a
// null block is a new one here, and counted.
void* opensslRealloc(void* p, size_t n, const char* file, int line) {
    if (p == nullptr) return opensslMalloc(n, file, line);
    return g_opensslFails ? nullptr : realloc(p, n);
}
void opensslFree(void* p, const char*, int) {
    if (p != nullptr) --g_opensslBlocks;
    free(p);
}
const bool g_opensslHooked = CRYPTO_set_mem_functions(opensslMalloc, opensslRealloc, opensslFree) == 1;

const auto bytes = [](std::string& s) { return reinterpret_cast<unsigned char*>(&s[0]); };
const auto hex = [](const std::string& raw) { return std::string(BinToHex(raw.data(), raw.size(), 0)); };

// Key, text and digest: MD5 (RFC 1321; the 80 bytes span two blocks) and HMAC-MD5 (RFC 2104, and a key of
// 64 bytes, which is used as it is).
TEST(CMD5, KnownAnswersWithAndWithoutAKey) {
    std::string rows[][3] = {
        {"", "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"", std::string(80, '1'), "7478ba1875f17511c12740431336a09e"},
        {"Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
        {std::string(64, 'k'), "m", "6411ef0a1a2b26701e4eac25e07d2702"},
    };
    for (auto& [key, text, digest] : rows) {
        std::string out(16, '\0');
        CMD5 md5;
        md5.HashBuffer(bytes(out), bytes(text), int(text.size()));
        if (!key.empty())
            CHMAC(&md5, bytes(key), int(key.size())).Sign(bytes(text), int(text.size()), bytes(out), 16);
        EXPECT_EQ(digest, hex(out)) << key << "/" << text;
    }
    std::string out(16, '\0'), text = "abc";
    CMD5 md5;  // a null buffer or a negative length adds nothing
    md5.Update(nullptr, 5), md5.Update(bytes(text), -1), md5.Update(bytes(text), 3), md5.Final(bytes(out));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", hex(out));
}

// A key of no bytes, too little room for the output or a digest longer than HMAC's room stop the process.
TEST(CHMACDeathTest, LengthsAreAsserted) {
    struct Wide : CMD5 { int HashLengthBits() override { return 1024; } } wide;  // a digest of 128 bytes
    unsigned char key[128] = {};
    EXPECT_DEATH(CHMAC(&wide, key, 0), "keyLength > 0");
    EXPECT_DEATH(CHMAC(&wide, key, 64).Sign(key, 1, key, 127), "outLength >= GetLengthBytes");
    EXPECT_DEATH(CHMAC(&wide, key, 64).Sign(key, 1, key, 128), "digestLength > 0 && digestLength <=");
}

TEST(CSignature, VerifiesExactlyTheTestKeysSignatureOfTheDigest) {
    const std::string digest = opensslMd5("package"), signature = signatureOf("package"), sha1(20, 'x');
    CSignature check;
    auto verifies = [&](const std::string& signature, const std::string& digest) {
        return check.VerifySignature(signature.c_str(), opensslBase64(digest).c_str());
    };
    EXPECT_TRUE(verifies(signature, digest));
    EXPECT_FALSE(verifies(signatureOf("package", "test-other-key.pem"), digest)) << "another key's";
    const std::string overSha1 = opensslBase64(signDigest("test-signing-key.pem", sha1, "SHA1"));
    EXPECT_FALSE(verifies(overSha1, sha1)) << "over SHA-1";
    // Decrypted, a signature shows its DigestInfo: MD5's prefix, then the digest.
    EXPECT_EQ("3020300c06082a864886f70d020505000410" + hex(digest),
              std::string(check.DecryptSignature(signature.c_str())));
    for (const std::string& undecryptable : {signatureOf("package", "test-other-key.pem"), signature + signature})
        EXPECT_EQ("", std::string(check.DecryptSignature(undecryptable.c_str()))) << "another key's, or too long";
    // HMAC-MD5 with the preshared key (tests/data/test-preshared.key), as base64.
    EXPECT_EQ("e8M4r4ZTlSAeKZJXjEIhIw==", std::string(check.Sign("session=1")));
}

// One that could not read its certificate (OpenSSL had no memory for it) verifies nothing; one that could
// gives back all it took from OpenSSL.
TEST(CSignature, WithoutItsCertificateVerifiesNothingAndLeavesNothingBehind) {
    ASSERT_TRUE(g_opensslHooked);
    const std::string digest = opensslBase64(opensslMd5("package")), signature = signatureOf("package");
    g_opensslFails = true;
    EXPECT_FALSE(CSignature().VerifySignature(signature.c_str(), digest.c_str()));
    g_opensslFails = false;
    std::vector<long> held;  // after each check; the first ones make OpenSSL's lasting tables
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(CSignature().VerifySignature(signature.c_str(), digest.c_str()));
        held.push_back(g_opensslBlocks);
    }
    EXPECT_EQ(held[2], held[3]) << held[0] << " " << held[1];
}

}  // namespace
